"""Texts that JSON parsers stumble over, as the argument text of every command."""

import json

import pytest

from commands import COMMANDS
from rig import DATA, LONG, Request

GATEWAY = """
[wan] WAN1 8000 16000
[http 80] {"msg":{}}
[file /etc/hosts] 127.0.0.1 ota.cpectl.example
"""
LONGEST_ARGUMENT = 131071
LONGEST_TAKEN = 1023
SLACK = 1.0  # seconds that an odd text may add


def texts():
    """Each text once, as far as it can be an argument: up to a NUL, and no longer than the kernel
    takes."""
    found = [path.read_bytes() for path in sorted(DATA.glob("json/test_*/*.json"))]
    for path in sorted(DATA.glob("json/*.txt")):
        found += path.read_bytes().split(b"\n")
    return list(dict.fromkeys(text.split(b"\0")[0][:LONGEST_ARGUMENT] for text in found))


def chosen(number, count):
    """All texts in the long form; in the short one every 60th, others for each command."""
    return texts() if LONG else texts()[number % 60::60][:count]


def check_answer(command, answer, text):
    if len(text) > LONGEST_TAKEN:
        assert (answer.ending, answer.stdout, answer.calls()) == ("exit 255", b"", []), text[:99]
        assert answer.stderr == b"cpectl: argument text is longer than 1023 bytes\n"
        return
    assert answer.stderr == b"" or b"Sanitizer" not in answer.stderr, text
    if command == "checkOta":
        assert (answer.ending, answer.stdout) == ("exit 255", b""), text
        return
    assert answer.ending == ("exit 255" if command == "localcfgUpdate" else "exit 0"), text
    lines = answer.stdout.decode("latin-1").splitlines()
    assert len(lines) == 1, text
    assert list(json.loads(lines[0]))[0] == "fun", text


@pytest.mark.parametrize("command", COMMANDS)
def test_odd_texts_are_answered_in_time(gateway, command, figure):
    gateway.prepare(GATEWAY)
    found = chosen(COMMANDS.index(command), 3 if command == "checkOta" else 9)
    if not found:
        pytest.skip(f"no texts at {DATA}/json")
    answers = gateway.run([Request([command, "{}"])] * 2 +
                          [Request([command, text]) for text in found])
    own_time = min(answer.seconds for answer in answers[:2])
    for text, answer in zip(found, answers[2:]):
        check_answer(command, answer, text)
        if answer.seconds > own_time + SLACK:  # was it the text, or the machine?
            again = gateway.run([Request([command, text])] * 3)
            assert min(each.seconds for each in again) <= own_time + SLACK, text
    figure(f"{command}: {len(found)} texts, longest {max(a.seconds for a in answers):.2f} s")


def test_the_slack_would_be_noticed(gateway):
    """A command that waits is measured as long as it takes."""
    gateway.prepare("[script /usr/sbin/webserv.sh]\n    sleep 0.7")
    answer, = gateway.run([Request(["setAdmPass", '{"admPass":"a"}'])])
    assert answer.seconds > 0.7
