#!/usr/bin/python3
"""Runs many random requests through the program and the model, and reports each disagreement.

usage: tools/harden/model.py [--requests N] [--seed N] [--jobs N] [--program PATH]
                             [--only COMMAND]...

The requests are spread over the commands, most to those with the most to say; the two that wait by
design for a good part of a second get fewer. One disagreement a command is reported, the smallest
that was found. Ends with 1 when there is any.
"""

import argparse
import collections
import multiprocessing
import sys
import tempfile
import time
import traceback
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "tests/model"))

from hypothesis import HealthCheck, given, seed, settings  # noqa: E402
from hypothesis.errors import Flaky  # noqa: E402

import against  # noqa: E402
import generate  # noqa: E402
import model  # noqa: E402
from world import World  # noqa: E402

STRAYS = b"(other arguments)"
SLOW = {b"getCpuMemLoad": 0.15, b"checkOta": 0.3}
RICH = (b"wanInfoSet", b"ipsecAddTun", b"ipsecDelTun", b"ipsecTunStaGet", b"pptpdAddUser",
        b"pptpdDelUser", b"setAdmPass", b"pptpcOpen", b"pptpdOpen", b"localcfgUpdate",
        b"pptpdUserStaGet", b"ipsecTunReboot", b"getStaList")


def shares(commands, total):
    """How many requests each command gets."""
    weights = {command: SLOW.get(command, 2 if command in RICH else 1) for command in commands}
    unit = total / sum(weights.values())
    return {command: max(1, round(unit * weight)) for command, weight in weights.items()}


def run_command(task):
    """(command, requests run, kinds of outcome, the report of the smallest disagreement or None)"""
    command, count, number, folder = task
    rig = against.Rig(folder)
    ran = collections.Counter()

    @seed(number)
    @settings(max_examples=count, database=None, deadline=None, print_blob=False,
              suppress_health_check=list(HealthCheck), report_multiple_bugs=False)
    @given(generate.strays.map(lambda arguments: (World(), arguments)) if command == STRAYS
           else generate.cases(command))
    def agree(case):
        world, arguments = case
        outcome = against.check(rig, world, arguments)
        ran[outcome_kind(outcome)] += 1

    try:
        agree()
    except (AssertionError, Flaky) as error:
        notes = "\n".join(getattr(error, "__notes__", []))
        what = str(error) or traceback.format_exc()
        return command, sum(ran.values()), ran, against.shown_text(f"{what}\n{notes}")
    return command, sum(ran.values()), ran, None


def outcome_kind(outcome):
    for word in (b'"stat":"ok"', b'"stat":"er"', b'"stat":"err"'):
        if word in outcome.stdout:
            return word.decode()[8:-1]
    return "silent" if not outcome.stdout else "other"


def main():
    parser = argparse.ArgumentParser(description="compares the program with the model")
    parser.add_argument("--requests", type=int, default=20000)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--program", help="the cpectl to test (default: the build's)")
    parser.add_argument("--only", action="append", help="this command (repeatable)")
    options = parser.parse_args()

    commands = [name for name, _, _ in model.COMMANDS] + [STRAYS]
    if options.only:
        commands = [command for command in commands if command.decode() in options.only]
    started = time.monotonic()
    disagreements = 0
    total = 0
    with tempfile.TemporaryDirectory(prefix="cpectl-model-") as folder:
        against.Rig(folder, options.program)
        tasks = [(command, count, options.seed, folder)
                 for command, count in shares(commands, options.requests).items()]
        with multiprocessing.Pool(options.jobs) as pool:
            for command, count, kinds, report in pool.imap_unordered(run_command, tasks, 1):
                total += count
                summary = ", ".join(f"{kind} {number}" for kind, number in kinds.most_common())
                print(f"{command.decode():20} {count:6} requests  ({summary})", flush=True)
                if report:
                    disagreements += 1
                    print(f"DISAGREEMENT in {command.decode()}\n{report}\n", flush=True)
    took = time.monotonic() - started
    print(f"{total} requests in {took:.0f} s, seed {options.seed}: "
          f"{disagreements or 'no'} command(s) disagree")
    return 1 if disagreements else 0


if __name__ == "__main__":
    sys.exit(main())
