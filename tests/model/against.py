"""Runs a request on the real program in the emulated gateway, and compares it with the model.

The gateway is made from the model's own world, and what came of the run is brought into the form
of the model's outcome, so that the comparison is one of plain values.
"""

import itertools
import os
import re
import shutil
import sys
from dataclasses import dataclass
from pathlib import Path

import model

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "gateway"))

from cpectl_sim import base, places, run, snapshot, store, trace  # noqa: E402
from cpectl_sim import world as sim_world  # noqa: E402

# Files of /proc that the program reads: what a world does not have is hidden.
PROC_FILES = (b"/proc/uptime", b"/proc/stat", b"/proc/meminfo",
              b"/proc/sys/net/ipv4/netfilter/ip_conntrack_count",
              b"/proc/sys/net/netfilter/nf_conntrack_count")
LONGEST = 120  # seconds, many times what any request takes on a busy machine
TOOL_WORDS = (b"cat:", b"sed:", b"sh:", b"/bin/sh:", b"mv:", b"md5sum:", b"nvram:")


_LONG_RUN = re.compile(r"(\\x[0-9a-f]{2}|.)\1{39,}")


def text(data):
    return data.decode("utf-8", "surrogateescape")


def plain(data):
    return data.encode("utf-8", "surrogateescape")


@dataclass
class Seen:
    """What a run of the program did, in the words of the model."""

    stdout: bytes
    ending: str
    stderr: list
    calls: list
    nvram: dict
    committed: dict
    mvram: dict
    files: dict    # path -> content, of files that are new or changed
    removed: set
    lingering: bool


class Rig:
    """Makes a gateway for each request in a work folder of its own.

    It works with copies of the program, the libraries and the helpers, so that a build in the
    meantime does not disturb it."""

    def __init__(self, folder, program=None):
        self.folder = Path(folder)
        parts = self.folder / "parts"
        if not parts.exists():
            copy_parts(places.find(program=program), parts)
        self.place = places.find(
            program=parts / "cpectl", platform=parts / "platform", helpers=parts / "helpers",
            recording=parts / "recording")
        self.base = base.ensure(self.folder / "base")
        self.numbers = itertools.count()

    def run(self, world, arguments):
        at = self.folder / f"run-{os.getpid()}-{next(self.numbers)}"
        root = sim_world.make_root(at / "root")
        try:
            gateway = build(world, root)
            before = snapshot.take(root)
            result = run.run(self.place, gateway, root, self.base, at / "run",
                             [run.PROGRAM, *map(text, arguments)])
            return seen(root, at / "run", before, snapshot.take(root), result)
        finally:
            shutil.rmtree(at)


def copy_parts(found, parts):
    parts.mkdir(parents=True)
    shutil.copy2(found.program, parts / "cpectl")
    for name in ("platform", "helpers", "recording"):
        shutil.copytree(getattr(found, name), parts / name)


def build(world, root):
    """The gateway of this world: files in `root`, the rest as the emulated gateway's own world."""
    gateway = sim_world.World(seconds=LONGEST, background_seconds=LONGEST)
    for path, content in world.files.items():
        if path.startswith(b"/proc/"):
            gateway.proc[text(path[6:])] = content
            continue
        place = root / text(path[1:])
        place.parent.mkdir(parents=True, exist_ok=True)
        place.write_bytes(content)
    for path in PROC_FILES:
        if path not in world.files and path not in world.readings:
            gateway.proc[text(path[6:])] = None
    for path, readings in world.readings.items():
        gateway.readings[text(path)] = dict(enumerate(readings, 1))
    for path in world.missing_folders:
        shutil.rmtree(root / text(path[1:]))
    put_stores(world, root)
    for path, script in world.scripts.items():
        gateway.scripts.append((text(path), [], [
            f"out {script.prints.hex() or '-'}", f"exit {script.status}"]))
    put_libraries(world, gateway)
    put_network(world, gateway, root)
    return gateway


def put_stores(world, root):
    for name, entries in (("committed", world.committed), ("mvram", world.mvram),
                          ("nvram", world.nvram if world.nvram != world.committed else {})):
        if entries:
            store.write(root, name, {text(key): text(value) for key, value in entries.items()})


def put_libraries(world, gateway):
    gateway.absent_libraries = set(world.absent_libraries)
    gateway.hosts = [str(len(world.hosts))] + [
        f"{host.ip.hex() or '-'} {host.down_total} {host.up_total} {host.down_rate} {host.up_rate}"
        for host in world.hosts]
    gateway.stations = [f"{one.ip.hex() or '-'} {one.ssid.hex() or '-'} {one.flags}"
                        for one in world.stations]
    if world.wan is None:
        gateway.wan = ["none"]
    else:
        count = len(world.wan) if world.wan_count is None else world.wan_count
        gateway.wan = [str(count)] + [f"{link.name.hex() or '-'} {link.down} {link.up}"
                                      for link in world.wan]


def put_network(world, gateway, root):
    if world.neighbours:
        gateway.neighbours = [(text(ip), text(mac), "eth0.5")
                              for ip, mac in world.neighbours.items()]
    for name, device in world.devices.items():
        if name == b"lo":
            continue
        gateway.net += [f"link add {text(name)} type veth peer name far-{len(gateway.net)}",
                        f"address add {text(device.address)} peer {text(device.peer)} "
                        f"dev {text(name)}"]
    if world.web is not None:
        (root / "etc/hosts").write_text("127.0.0.1 ota.cpectl.example\n")
        gateway.http.append((80, 200, 0, "/", world.web))


def seen(root, run_dir, before, after, result):
    """Collects what the run left."""
    events = trace.read(run_dir)
    changed = snapshot.changes(before, after)
    stores = {name: {plain(key): plain(value) for key, value in store.read(root, name).items()}
              for name in ("nvram", "committed", "mvram")}
    return Seen(
        stdout=(run_dir / "stdout").read_bytes(), ending=result.exit_line(),
        stderr=(run_dir / "stderr").read_bytes().splitlines(),
        calls=[call_of(event) for event in events if "call" in event or "shell" in event],
        files={plain(change.path): plain(change.content or "") for change in changed
               if change.what != "removed" and change.kind == "file"},
        removed={plain(change.path) for change in changed if change.what == "removed"},
        lingering=result.lingering, **stores)


def call_of(event):
    if "shell" in event:
        return ("shell", plain(event["shell"]))
    return (event["call"], *(plain(argument) if isinstance(argument, str) else argument
                             for argument in event["args"]))


def differences(world, outcome, really):
    """What differs between the model's outcome and the real one, as readable lines."""
    found = []

    def compare(what, expected, got):
        if expected != got:
            found.append(f"{what}:\n  expected {shown(expected)}\n  got      {shown(got)}")

    compare("standard output", outcome.stdout, really.stdout)
    compare("exit status", str(outcome.status), really.ending)
    compare("calls", [normal(call) for call in outcome.calls],
            [normal(call) for call in really.calls])
    compare("NVRAM", outcome.world.nvram, really.nvram)
    compare("committed copy", outcome.world.committed, really.committed)
    compare("second store", outcome.world.mvram, really.mvram)
    compare("changed files", changed_files(world, outcome.world), really.files)
    compare("removed files", set(), really.removed)
    compare("still running at the end", False, really.lingering)
    if outcome.complains:
        compare("lines on standard error", 1, len(really.stderr))
    else:
        compare("standard error", [], [line for line in really.stderr
                                       if not line.startswith(TOOL_WORDS)])
    return found


def shown(value):
    """A value for people: long runs of one character as <x*1000>."""
    return shown_text(repr(value))


def shown_text(report):
    return _LONG_RUN.sub(lambda run: f"<{run[1]}*{len(run[0]) // len(run[1])}>", report)


def normal(call):
    """Numbers and texts alike as bytes, for the recorder may write either."""
    return tuple(part if isinstance(part, bytes) else str(part).encode() for part in call)


def changed_files(before, after):
    return {path: content for path, content in after.files.items()
            if before.files.get(path) != content and not path.startswith(b"/proc/")}


def check(rig, world, arguments):
    """Runs a request on both and returns the outcome; AssertionError with all differences when they
    disagree."""
    outcome = model.run(world, arguments)
    found = differences(world, outcome, rig.run(world, arguments))
    assert not found, "\n".join(["the program does otherwise:", *found])
    return outcome
