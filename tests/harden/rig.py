"""Runs many requests in one emulated gateway, and says of each what came of it."""

import itertools
import json
import os
import shutil
import subprocess
import sys
from dataclasses import dataclass, field
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "gateway"))
sys.path.insert(0, str(PROJECT / "tools/harden"))

from cpectl_sim import base, case, check, places, run, store, text, trace  # noqa: E402
from cpectl_sim import world as sim_world  # noqa: E402

HERE = Path(__file__).resolve().parent
DATA = Path(os.environ.get("CPECTL_DATA", PROJECT / "../shared/data"))
LONG = os.environ.get("CPECTL_HARDEN") == "long"
WARNINGS = ["-Wall", "-Wextra", "-Werror"]
PROGRAM = "/usr/sbin/cpectl"


@dataclass
class Request:
    """One request of a batch, with what is put into its place before it."""

    arguments: list
    files: dict = field(default_factory=dict)  # path: bytes, or None to remove it
    environment: dict = field(default_factory=dict)
    output: str = None    # "closed", "full", "broken-pipe"
    handicap: str = None  # "rights", "children", or how many files may be open; see batch.c
    kill: str = None      # "NUMBER", "all NUMBER" or "NUMBER SIGNAL": at a system call; see batch.c
    shown: list = field(default_factory=list)  # files to be read, folders to be listed afterwards


@dataclass
class Answer:
    """What came of it."""

    ending: str  # "exit 0", "signal 9", "timeout 0"
    seconds: float
    stdout: bytes
    stderr: bytes
    events: list
    calls_made: int      # system calls, when asked for
    last_call: int       # the kernel's number of the last of them
    shown: dict          # path: content, None where there is nothing; a folder's names

    def shells(self):
        return [event["shell"] for event in self.events if "shell" in event]

    def calls(self):
        """Platform calls and shell texts, in order, as lines."""
        return trace.calls(self.events)

    def scripts(self):
        """[path, argument ...] of each script that ran, as bytes."""
        return [[text.to_bytes(word) for word in (event["script"], *event["args"])]
                for event in self.events if "script" in event]


def compile_c(target, *arguments):
    subprocess.run(["cc", "-O1", "-g", "-D_GNU_SOURCE", *WARNINGS, "-o", target, *arguments],
                   check=True)
    return target


class Parts:
    """What the tests of this folder build on, made once. Copies of the programs and libraries, so
    that a build in the meantime does not disturb them."""

    def __init__(self, directory, program=None):
        self.directory = Path(directory)
        found = places.find(program=program)
        shutil.copy(found.program, self.directory / "cpectl")
        for name in ("platform", "helpers", "recording"):
            shutil.copytree(getattr(found, name), self.directory / name, symlinks=True)
        self.place = places.find(
            program=self.directory / "cpectl", platform=self.directory / "platform",
            helpers=self.directory / "helpers", recording=self.directory / "recording")
        self.base = base.ensure(self.directory / "base")
        self.batch = compile_c(self.directory / "batch", "-static", HERE / "batch.c")


class Gateway:
    """A gateway that takes requests in batches."""

    def __init__(self, directory, parts):
        self.parts = parts
        self.gateway = check.Gateway(directory, parts.place, parts.base)
        self.root = self.gateway.root
        self.bring(parts.batch)

    def bring(self, source, name=None):
        """Puts a file into the gateway's /opt, which no request touches."""
        target = self.root / "opt" / (name or Path(source).name)
        target.parent.mkdir(exist_ok=True)
        shutil.copy(source, target)

    def prepare(self, scenario):
        """Changes the gateway as the world sections of a case would."""
        sim_world.apply(case.parse(scenario).steps[0].world, self.gateway.world, self.root)

    def write(self, path, content):
        target = self.root / path.lstrip("/")
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(content)

    def read(self, path):
        """The content of a file; None when there is none."""
        target = self.root / path.lstrip("/")
        return target.read_bytes() if target.exists() else None

    def store(self, name):
        return store.read(self.root, name)

    def names(self):
        """All files, as the gateway sees them; without the stores' and those of the tests."""
        return {f"/{path.relative_to(self.root)}" for path in self.root.rglob("*")
                if path.is_symlink() or not path.is_dir()
                if path.parts[len(self.root.parts)] != "opt"
                and not store.is_store_file(str(path.relative_to(self.root)))}

    def program(self, path, *arguments, seconds=600):
        """Runs another program than cpectl as the gateway's program."""
        self.gateway.world.seconds = seconds
        program, run.PROGRAM = run.PROGRAM, path
        try:
            return self.gateway.request(list(arguments))
        finally:
            run.PROGRAM = program

    def script(self, content, *arguments, seconds=600):
        """Runs a shell script as the gateway's program."""
        self.write("/opt/script", content.encode())
        return self.program("/bin/busybox", "sh", "/opt/script", *arguments, seconds=seconds)

    def run(self, requests, limit=60, program=(PROGRAM,), first=""):
        """Runs the requests in their order; one Answer each. `program` is what they are given to.

        `limit` is how long one may take, in seconds, with all that it leaves in the background.
        `first` is a shell script that runs before them."""
        requests = list(requests)
        self.write("/opt/requests", _fields(requests, limit))
        seconds = (limit + 1) * len(requests) + 60
        if first:
            outcome = self.script(f'{first}\nexec /opt/batch "$@"\n', *program, seconds=seconds)
        else:
            outcome = self.program("/opt/batch", *program, seconds=seconds)
        if outcome.result.exit_line() != "0":
            raise RuntimeError(f"batch: {outcome.result.exit_line()} {outcome.output('stderr')}")
        answers = list(_answers(requests, self.read("/opt/results"), outcome.run_dir))
        shutil.rmtree(outcome.run_dir)
        return answers


def _fields(requests, limit):
    made = [b"l%f" % limit]
    for request in requests:
        for path, content in request.files.items():
            made += [b"x" + path.encode()] if content is None else [b"f" + path.encode(), content]
        made += [f"e{name}={value}".encode() for name, value in request.environment.items()]
        made += [b"o" + request.output.encode()] if request.output else []
        made += [b"h" + request.handicap.encode()] if request.handicap else []
        made += [b"k" + request.kill.encode()] if request.kill else []
        made += [b"s" + path.encode() for path in request.shown]
        made += [b"a" + as_bytes(word) for word in request.arguments]
        made.append(b"r")
    return b"".join(b"%d:%s," % (len(each), each) for each in made)


def as_bytes(word):
    return word if isinstance(word, bytes) else text.to_bytes(word)


def _answers(requests, results, run_dir):
    parts = iter(_results(results))
    written = (run_dir / "trace").read_bytes()
    for request in requests:
        how, status, took, before, after, stdout, stderr, calls, last, _ = itertools.islice(
            parts, 10)
        shown = dict(zip(request.shown, itertools.islice(parts, len(request.shown))))
        yield Answer(
            f"{how.decode()} {status.decode()}", int(took) / 1e6, stdout, stderr,
            [json.loads(line) for line in written[int(before):int(after)].splitlines()],
            int(calls), int(last),
            {path: content[1:] if content[:1] == b"+" else None
             for path, content in shown.items()})


def _results(results):
    at = 0
    while at < len(results):
        colon = results.index(b":", at)
        end = colon + 1 + int(results[at:colon])
        yield results[colon + 1:end]
        at = end + 1


def json_argument(members):
    """A JSON object of members whose values are bytes, bytes that are not UTF-8 as they stand."""
    return b"{" + b",".join(_json_text(as_bytes(name)) + b":" + _json_text(value)
                            for name, value in members.items()) + b"}"


def _json_text(value):
    made = b""
    for byte in value:
        if byte in b'"\\':
            made += b"\\" + bytes([byte])
        elif byte < 0x20:
            made += b"\\u%04x" % byte
        else:
            made += bytes([byte])
    return b'"' + made + b'"'


__all__ = ["Answer", "Gateway", "Parts", "Request", "trace"]
