"""A small package in the form of the pinned one, and a server that delivers it, well or badly."""
import base64
import contextlib
import gzip
import hashlib
import http.server
import io
import json
import tarfile
import threading

import numpy

import convert
from pinned import Package


def tiny_graph(change=lambda nodes, weights: None):
    """The graph's text and weights: each head is one convolution of the picture."""
    nodes, weights = {}, {}
    for head, node in convert.HEADS.items():
        nodes[head] = {"name": convert.ROOT + node, "op": "_FusedConv2D",
                       "input": [convert.PICTURE, head + "/weights", head + "/bias"],
                       "attr": {"strides": {"list": {"i": ["1", "4", "4", "1"]}},
                                "fused_ops": {"list": {"s": [base64.b64encode(b"BiasAdd").decode()]}}}}
        weights[head + "/weights"] = numpy.full((4, 4, 3, convert.CHANNELS[head]), 0.5, numpy.float16)
        weights[head + "/bias"] = numpy.ones(convert.CHANNELS[head], numpy.float16)
    change(nodes, weights)
    entries = [{"name": name, "shape": list(values.shape), "dtype": "float32", "quantization": {"dtype": "float16"}}
               for name, values in weights.items()]
    text = json.dumps({"modelTopology": {"node": list(nodes.values())}, "weightsManifest": [{"weights": entries}]})
    return {convert.GRAPH: text.encode(), convert.WEIGHTS: b"".join(values.tobytes() for values in weights.values())}


def archive_of(files, folder="package/models/"):
    """A tarball with these files between others."""
    buffer = io.BytesIO()
    with tarfile.open(fileobj=buffer, mode="w") as archive:
        for name, content in {"before.bin": b"b" * 100_000, **files, "after.bin": b"a" * 300_000}.items():
            member = tarfile.TarInfo(folder + name)
            member.size = len(content)
            archive.addfile(member, io.BytesIO(content))
    return gzip.compress(buffer.getvalue(), 0), len(buffer.getvalue())


def pinned(files, archive, unpacked):
    integrity = "sha512-" + base64.b64encode(hashlib.sha512(archive).digest()).decode()
    return Package("tiny@1", integrity, len(archive), unpacked, "package/models/",
                   {name: (len(content), hashlib.sha256(content).hexdigest()) for name, content in files.items()})


@contextlib.contextmanager
def server_of(archive):
    """An address whose paths say how the archive comes: whole, altered, cut, silent, longer; others are not found."""
    finished = threading.Event()

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            way, half = self.path.strip("/"), len(archive) // 2
            bodies = {"whole": archive, "altered": archive[:half] + bytes([archive[half] ^ 1]) + archive[half + 1:],
                      "cut": archive[:half], "silent": archive[:half], "longer": archive + b"\0" * 100_000}
            if way not in bodies:
                return self.send_error(404)
            self.send_response(200)
            self.send_header("Content-Length", str(max(len(archive), len(bodies[way]))))
            self.end_headers()
            with contextlib.suppress(OSError):  # who has heard enough hangs up
                self.wfile.write(bodies[way])
            if way == "silent":
                finished.wait()

        def log_message(self, *_):
            pass

    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    thread = threading.Thread(target=server.serve_forever)
    thread.start()
    try:
        yield f"http://127.0.0.1:{server.server_address[1]}/"
    finally:
        finished.set()
        server.shutdown()
        thread.join()
        server.server_close()
