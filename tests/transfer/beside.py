"""Runs real programs of this machine beside cpectl in an emulated gateway: servers and daemons.

Whatever runs beside it is below /opt of the gateway, which no request touches.
"""

import shutil
import sys
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "gateway"))

from cpectl_sim import base, case, check, places, run, store, trace, world  # noqa: E402

PYTHON = "/usr/bin/python3"


class Office:
    """A gateway with other programs in it."""

    def __init__(self, directory, place, base_dir):
        self.gateway = check.Gateway(directory, place, base_dir)
        self.root = self.gateway.root
        (self.root / "opt").mkdir()

    def prepare(self, scenario):
        """Changes the gateway as the world sections of a case would."""
        world.apply(case.parse(scenario).steps[0].world, self.gateway.world, self.root)

    def bring(self, source, name=None):
        """Puts a file of this machine into /opt."""
        target = self.root / "opt" / (name or Path(source).name)
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(source, target)

    def bring_python(self):
        """Makes "/opt/python3 -B" run scripts: its modules are in the libraries of this machine."""
        self.bring(PYTHON)

    def write(self, path, content):
        target = self.root / path.lstrip("/")
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_bytes(content if isinstance(content, bytes) else content.encode())

    def read(self, path):
        return (self.root / path.lstrip("/")).read_bytes()

    def request(self, *arguments):
        """Runs cpectl; returns what came of it."""
        return self.gateway.request(arguments)

    def script(self, text, *arguments):
        """Runs a shell script as the gateway's program; it starts /usr/sbin/cpectl itself."""
        self.write("/opt/script", text)
        program, run.PROGRAM = run.PROGRAM, "/bin/busybox"
        try:
            return self.gateway.request(["sh", "/opt/script", *arguments])
        finally:
            run.PROGRAM = program

    def store(self, name, entries):
        store.write(self.root, name, entries)


def shells(outcome):
    """The texts that cpectl handed to the shell."""
    return [event["shell"] for event in outcome.events if "shell" in event]


def scripts(outcome):
    return trace.scripts(outcome.events)


def place_of(directory):
    """The parts of the gateway, with a copy of the program: a build meanwhile does not matter."""
    place = places.find()
    program = Path(directory) / "cpectl"
    shutil.copy(place.program, program)
    return place.with_program(program)


def base_of(directory):
    return base.ensure(Path(directory) / "base")
