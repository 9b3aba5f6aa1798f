"""Each signal at any moment: the program ends at once, or it goes on and answers as ever.

It catches none: while a script runs, the C library has it ignore those of the keyboard, and from
the answer on it ignores that of a closed pipe. What one that ends it leaves is what a kill leaves.
"""

import itertools
import signal

import pytest

import commands
import test_kill
from rig import LONG

# The short form sends a signal at every so many of the calls behind the loading of the program.
STEP = 5 if LONG else 61
COMMANDS = commands.WRITERS if LONG else ("setAdmPass", "localcfgUpdate", "pptpdDelUser")
ENDS = (signal.SIGHUP, signal.SIGINT, signal.SIGPIPE, signal.SIGALRM, signal.SIGTERM)
NOTHING = (signal.SIGCHLD, signal.SIGCONT, signal.SIGWINCH, signal.SIGURG)


def is_whole(command, answer):
    """Whether the request went its usual way to the end."""
    if command == "checkOta":
        return (answer.ending, answer.stdout) == ("exit 255", b"")
    if command == "localcfgUpdate":
        return answer.ending == "exit 255" and commands.LOCALCFG.fullmatch(answer.stdout)
    return answer.ending == "exit 0" and commands.is_answer(command, answer.stdout)


def is_printed(command, answer):
    """Whether the signal came when all had been said already."""
    return commands.LOCALCFG.fullmatch(answer.stdout) if command == "localcfgUpdate" else \
        commands.is_answer(command, answer.stdout)


@pytest.mark.parametrize("number", ENDS + NOTHING, ids=lambda number: number.name)
def test_a_signal_at_each_system_call(gateway, number, figure):
    commands.prepare(gateway)
    ended = sent = 0
    for command in COMMANDS:
        before, after, calls = test_kill.what_is_usual(gateway, command)
        turns = list(range(31, calls + 1, STEP))
        answers = gateway.run(itertools.chain(*(
            test_kill.requests(command, f"{turn} {number.value}") for turn in turns)))
        for turn, answer in zip(turns, answers[::2]):
            where = command, turn, answer
            if answer.ending == f"signal {number.value}":
                assert number in ENDS and (not answer.stdout or is_printed(command, answer)), where
                test_kill.check_left(before, after, answer.shown, False)
                ended += 1
            else:
                assert is_whole(command, answer), where
        sent += len(turns)
    assert bool(ended) == (number in ENDS)
    figure(f"{number.name}: sent {sent} times to {len(COMMANDS)} commands, ended {ended}")
