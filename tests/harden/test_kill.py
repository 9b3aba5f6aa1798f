"""Commands that write are killed at each of their system calls: what can be left of each file.

docs/failures.md states what that is; here it is found out. A request that is killed either left a
file and a key as they were, or as they are to be, or in a state that is named below, and the next
request finds everything in order. Each is killed alone, and with all that it started, as when the
power goes.
"""

import itertools
import json
import re

import pytest

import commands
from commands import FILES, WRITERS
from rig import LONG, PROJECT
from cpectl_sim import store, text

# The short form kills at every so many of the calls behind the loading of the program.
STEP = 1 if LONG else 37
LOADING = 0 if LONG else 30

SHOWN = [*FILES, "/tmp", "/disk/conf", "/etc", "/var/run/cpectl", "/tmp/password.tmp",
         "/tmp/pushfile", "/tmp/ipsec_stat", "/tmp/ipsec_state_tmp", "/tmp/ipsec_eroute_tmp",
         "/tmp/cpectl_tmp_write_file"]
LINE_FILES = ("/disk/conf/ipsec.cfg", "/disk/conf/pptpuser.cfg")
STORES = ("/var/run/cpectl/nvram", "/disk/conf/nvram", "/var/run/cpectl/mvram")
IDENTITY = "/etc/cpectl.cfg"

# Work files that may stay behind; the next request that needs one begins it anew.
LEFT_BEHIND = {"password.tmp", "pushfile", "ipsec_stat", "ipsec_state_tmp", "ipsec_eroute_tmp",
               "cpectl_tmp_write_file"}
# Beside a store's file lies its new copy until it takes the file's place; sed makes one, too.
NEW_COPIES = re.compile(r"nvram\.new|mvram\.new|nvram\.\w+|mvram\.\w+|cpectl\.cfg\w+")
# While a line file is moved into its place, the old one keeps a second name.
OLD_FILE = re.compile(r"(ipsec|pptpuser)\.cfg\.cpectl-old")


def entries(content):
    return store.decode(text.from_bytes(content or b""))


def names(listing):
    return {text.from_bytes(name) for name in listing.split(b"\n")} - {"", ".", ".."}


# By order of the writes, the password's key holds its hashed form before it holds the password.
HASH = re.compile("[0-9a-f]{16}")


def check_store(path, before, after, now):
    """Each key has its old value or its new one, and none is lost."""
    old, new, found = entries(before), entries(after), entries(now)
    for key in old.keys() | new.keys():
        if key == "ADMIN_AUTH" and HASH.fullmatch(found.get(key, "")):
            continue
        assert found.get(key) in (old.get(key), new.get(key)), (path, key, found.get(key))
    assert found.keys() <= old.keys() | new.keys()
    assert now is None or now == b"" or now.endswith(b"\n"), (path, now)


def check_identity(before, after, now):
    """Lines are whole; a line of the program's own may be missing, the others are all there."""
    own = re.compile(rb"</CP_\w+> ")
    assert now is not None and (now == b"" or now.endswith(b"\n")), now
    known = set(before.splitlines()) | set(after.splitlines())
    found = now.splitlines()
    assert set(found) <= known, now
    assert [line for line in found if line and not own.match(line)] == \
        [line for line in before.splitlines() if not own.match(line)], now


def is_being_moved(path, after, now):
    """Between two file systems, mv takes the old file away before it writes the new one. The old
    one is still there then, for whoever comes next."""
    folder, _, name = path.rpartition("/")
    return f"{name}.cpectl-old" in names(now[folder]) and \
        (now[path] is None or after[path].startswith(now[path]))


def check_left(before, after, now, with_children):
    """What a killed request left against what was there and what a whole one leaves."""
    for path in LINE_FILES:
        assert now[path] in (before[path], after[path]) or \
            with_children and is_being_moved(path, after, now), (path, now[path])
    for path in STORES:
        check_store(path, before[path], after[path], now[path])
    check_identity(before[IDENTITY], after[IDENTITY], now[IDENTITY])
    for path in ("/etc/router.ver", "/tmp/pptp_clients"):
        assert now[path] == before[path], path
    for folder in ("/tmp", "/disk/conf", "/etc", "/var/run/cpectl"):
        allowed = names(before[folder]) | names(after[folder])
        allowed |= LEFT_BEHIND if folder == "/tmp" else set()
        strange = {name for name in names(now[folder]) - allowed
                   if not NEW_COPIES.fullmatch(name) and not OLD_FILE.fullmatch(name)}
        assert not strange, (folder, strange)


def check_again(command, after, killed, again):
    """The same request again ends as if the first one had not been there."""
    assert again.ending == ("exit 255" if command in ("localcfgUpdate", "checkOta") else "exit 0")
    for path in LINE_FILES:
        assert again.shown[path] == after[path], path
    assert not [name for name in names(again.shown["/disk/conf"]) if OLD_FILE.fullmatch(name)]
    for path in STORES:
        assert entries(again.shown[path]) == entries(after[path]), path
    assert sorted(again.shown[IDENTITY].splitlines()) == sorted(after[IDENTITY].splitlines())


def requests(command, kill):
    request = commands.request(command)
    request.files.update(dict.fromkeys(path for path in SHOWN[len(FILES) + 4:]))
    request.kill = kill
    request.shown = SHOWN
    again = commands.request(command)
    again.files = {}
    again.shown = SHOWN
    return request, again


def what_is_usual(gateway, command):
    """The files before and after a whole request, and how many system calls it makes."""
    nothing = commands.request(command)
    nothing.arguments = ["no such command"]
    nothing.shown = SHOWN
    whole, _ = requests(command, "0")
    before, after = gateway.run([nothing, whole])
    return before.shown, after.shown, after.calls_made


@pytest.mark.parametrize("power", ["", "all "], ids=["alone", "with its children"])
@pytest.mark.parametrize("command", WRITERS)
def test_killed_at_each_system_call(gateway, command, power, figure):
    commands.prepare(gateway)
    before, after, calls = what_is_usual(gateway, command)
    offset = WRITERS.index(command) % STEP
    step = STEP if LONG or command != "checkOta" else STEP * 3
    turns = list(range(1 + LOADING + offset, calls + 1, step))
    answers = gateway.run(itertools.chain(*(
        requests(command, f"{power}{turn}") for turn in turns)))
    seen = set()
    for turn, killed, again in zip(turns, answers[::2], answers[1::2]):
        assert killed.ending == "signal 9" or killed.calls_made < turn, (turn, calls, killed)
        try:
            check_left(before, after, killed.shown, bool(power))
            check_again(command, after, killed, again)
        except AssertionError as error:
            raise AssertionError(f"killed at call {turn} (number {killed.last_call}) of {calls}: "
                                 f"{error}") from None
        seen.update(differing(before, after, killed.shown))
    figure(f"{command} killed {'with its children' if power else 'alone'}: {len(turns)} of {calls} "
           f"calls; in between: {json.dumps(sorted(seen))}")


def test_the_table_of_failures_has_every_writing_command():
    """And no other one, in the column of who writes what."""
    named = set()
    for line in (PROJECT / "docs/failures.md").read_text().split("\n"):
        if line.count(" | ") == 3:
            named.update(re.findall(r"`(\w+)`", line.split(" | ")[1]))
    assert named == set(WRITERS)


def differing(before, after, now):
    """What was neither as before nor as after, for docs/failures.md."""
    for path in SHOWN:
        if now[path] in (before[path], after[path]):
            continue
        if path in STORES and entries(now[path]) in (entries(before[path]), entries(after[path])):
            continue
        yield path
