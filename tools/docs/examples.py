"""Runs the example of each command in an emulated gateway and keeps what came of it."""

import shutil
import sys
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "gateway"))

from cpectl_sim import base, case, check, places, trace, world  # noqa: E402

WORKERS = 4


@dataclass
class Example:
    """A request as one types it, what it printed, and what it did."""

    request: str
    printed: str
    status: str
    trace: list


def _request_line(arguments):
    return " ".join(["cpectl", arguments[0], *(f"'{text}'" for text in arguments[1:])])


def _trace_lines(outcome):
    """The record for people. What a server got comes behind the calls: transfers run beside them,
    so their place among them differs from run to run."""
    lines = trace.readable(outcome.events, outcome.changes, outcome.result, outcome.run_dir)
    kinds = (("call", "shell", "script"), ("request",), ("file",), ("exit",))
    return [line for kind in kinds for line in lines if line.split(" ", 1)[0] in kind]


def _run(text, directory, place, base_dir):
    step = case.parse(text).steps[0]
    gateway = check.Gateway(directory, place, base_dir)
    world.apply(step.world, gateway.world, gateway.root)
    outcome = gateway.request(step.arguments)
    example = Example(_request_line(step.arguments), outcome.output("stdout"),
                      outcome.result.exit_line(), _trace_lines(outcome))
    shutil.rmtree(directory)
    return example


def run_all(commands, directory):
    """The example of each command, by name. `directory` is for the gateways."""
    place = places.find()
    base_dir = base.ensure(directory / "base")
    with ThreadPoolExecutor(WORKERS) as workers:
        found = workers.map(
            lambda name: _run(commands[name]["example"], directory / name, place, base_dir),
            commands)
        return dict(zip(commands, found))
