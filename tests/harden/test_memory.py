"""Each allocation of each command fails in turn: silence and 255, or the whole answer, no crash."""

import re

import pytest

import commands
import rig
from commands import COMMANDS
from rig import HERE, LONG, Request

# The short form takes every so many of the allocations; the unit tests take all of them.
STEP = 1 if LONG else 7
LIBRARY = "/opt/libfailmalloc.so"

# Texts that a command may print without memory, besides its answer to the request and that to one
# without arguments (its argument text cannot be parsed without memory).
WITHOUT_MEMORY = {
    "getCpuMemLoad": rb"Error before: \[.*\]\n",
    "ipsecTunStaGet": rb'\{"fun":"ipsecTunStaGet","stat":"err"\}\n',
    "pptpdUserStaGet": rb'\{"fun":"pptpdUserStaGet","stat":"err"\}\n',
    # One of its two objects failing alone is not caught.
    "openIntranetProxy": rb'\{"fun":"openIntranetProxy","stat":"(ok|er)"\}\n',
}


@pytest.fixture(scope="session", name="library")
def make_library(parts):
    return rig.compile_c(parts.directory / "libfailmalloc.so", "-shared", "-fPIC",
                         HERE / "failmalloc.c")


def failing(command, at, scope):
    return commands.request(command, LD_PRELOAD=LIBRARY, FAIL_AT=str(at), FAIL_SCOPE=scope)


def comparable(stdout):
    """An answer without what differs from run to run."""
    return re.sub(rb'"(cpu_load|mem_load|runTm\w+)":[0-9.]+', rb'"\1":0', stdout)


def allocations(gateway, command, scope):
    """How many allocations the command makes when none fails."""
    counting = failing(command, 0, scope)
    counting.environment["FAIL_COUNT"] = "/opt/count"
    gateway.run([counting])
    return int(gateway.read("/opt/count"))


def usual_answers(gateway, command):
    """The answers to the request and to one without arguments, each with what was done for it."""
    bare = Request([command], dict(commands.FILES))
    return {(answer.ending, comparable(answer.stdout)): answer.calls()
            for answer in gateway.run([bare, commands.request(command)])}


@pytest.mark.parametrize("command", COMMANDS)
def test_an_allocation_of_the_program_fails(gateway, library, command, figure):
    commands.prepare(gateway)
    gateway.bring(library)
    usual = usual_answers(gateway, command)
    count = allocations(gateway, command, "program")
    step = STEP if LONG or command != "checkOta" else STEP * 3
    turns = list(range(1, count + 1, step))
    for turn, answer in zip(turns, gateway.run(failing(command, turn, "program")
                                               for turn in turns)):
        seen = answer.ending, comparable(answer.stdout)
        other = re.fullmatch(WITHOUT_MEMORY.get(command, b"(?!)"), answer.stdout)
        assert seen in usual or seen == ("exit 255", b"") or other, (turn, count, seen)
        if answer.ending == "exit 0" and seen in usual:
            assert answer.calls() == usual[seen], f"{turn}: an answer for work that was not done"
        assert not answer.stderr or b"Sanitizer" not in answer.stderr
    assert count > 3 or command in ("checkOta", "localcfgUpdate")
    figure(f"{command}: {len(turns)} of {count} allocations of the program")


@pytest.mark.skipif(not LONG, reason="in the long form only (./dev harden)")
@pytest.mark.parametrize("command", COMMANDS)
def test_any_allocation_of_the_process_fails(gateway, library, command, figure):
    """Those of the C library, of the platform libraries and of libcurl, too: what they do then is
    theirs to say, but the program answers or is silent."""
    commands.prepare(gateway)
    gateway.bring(library)
    count = allocations(gateway, command, "all")
    turns = list(range(1, count + 1, 1 if count < 1000 else count // 300))
    for turn, answer in zip(turns, gateway.run(failing(command, turn, "all") for turn in turns)):
        assert answer.ending in ("exit 0", "exit 255"), (turn, count, answer)
        whole = answer.ending == "exit 0" and commands.is_answer(command, answer.stdout)
        other = re.fullmatch(WITHOUT_MEMORY.get(command, b"(?!)"), answer.stdout)
        silent = answer.ending == "exit 255" and \
            (not answer.stdout or commands.LOCALCFG.fullmatch(answer.stdout))
        assert whole or silent or other, (turn, count, answer)
    figure(f"{command}: {len(turns)} of {count} allocations of the process")
