"""Runs the request cases once and keeps a record of what each request did, for the contract.

The cases themselves are judged by tests/cases; here only the records count.
"""

import json
import shutil
import sys
from concurrent.futures import ThreadPoolExecutor
from dataclasses import asdict, dataclass
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "gateway"))

from cpectl_sim import base, case, check, places, trace, world  # noqa: E402

CASES = PROJECT / "tests/cases"
# Many cases wait for something (a script, a server), so there are more workers than processors.
WORKERS = 6


@dataclass
class Record:
    """One request of a case and what came of it."""

    name: str         # the case, and the number of the request in it
    arguments: list   # of the program
    printed: str      # on standard output
    exit: str
    calls: list       # platform calls and shell texts, as they were made
    scripts: list     # runs of recorded scripts and tools, as in [scripts] of the cases
    requests: list    # what web servers got, as in [requests]
    changes: dict     # path of each file that changed: created, changed or removed; empty where
                      # scripts of the case may have changed them
    absent: list      # the libraries that the gateway does not have
    unwritable: bool  # what the program printed could not be written
    world: list       # paths that the case's gateway was given: files, and absent ones


def case_files():
    """The request cases: files without an extension."""
    return sorted(path for path in CASES.rglob("*")
                  if path.is_file() and not path.suffix and "__pycache__" not in path.parts)


def _call_line(event):
    """A call or shell text as it was made: nothing is quoted."""
    if "shell" in event:
        return "shell " + event["shell"]
    return " ".join([event["call"], *map(str, event["args"])])


def _record(name, gateway, step, paths):
    outcome = gateway.request(step.arguments)
    return Record(
        name, step.arguments, outcome.output("stdout"), outcome.result.exit_line(),
        [_call_line(event) for event in outcome.events if "call" in event or "shell" in event],
        trace.scripts(outcome.events), trace.requests(outcome.events, outcome.run_dir),
        {} if gateway.world.script_texts else
        {change.path: change.what for change in outcome.changes},
        sorted(gateway.world.absent_libraries), gateway.world.output is not None, sorted(paths))


def record_case(path, directory, place, base_dir):
    """The records of all requests of a case, run in a new directory, which is removed."""
    gateway = check.Gateway(directory, place, base_dir)
    records = []
    paths = set()
    for number, step in enumerate(case.load(path).steps, 1):
        if step.reboot:
            world.reboot(gateway.root)
        world.apply(step.world, gateway.world, gateway.root)
        paths.update(section.words[0] for section in step.world
                     if section.name in ("file", "absent", "reading", "symlink", "dir"))
        records.append(_record(f"{path.relative_to(CASES)}, request {number}", gateway, step,
                               paths))
    shutil.rmtree(directory, ignore_errors=True)
    return records


def record_all(directory):
    """The records of all cases, in the order of their names."""
    place = places.find()
    base_dir = base.ensure(directory / "base")
    files = case_files()
    with ThreadPoolExecutor(WORKERS) as workers:
        found = workers.map(
            lambda numbered: record_case(numbered[1], directory / f"case-{numbered[0]}", place,
                                         base_dir),
            enumerate(files))
        return [record for records in found for record in records]


def write(directory):
    """Writes the records of all cases into a directory."""
    records = record_all(directory / "cases")
    (directory / "records.json").write_text(json.dumps([asdict(each) for each in records]), "utf-8")


def read(directory):
    kept = json.loads((directory / "records.json").read_text("utf-8"))
    return [Record(**fields) for fields in kept]
