"""Writers that are killed or meet failures, and power cuts: the old copy or the new one, whole."""

import errno
import os
import random
import resource
import signal
import subprocess
import time

import pytest

OLD = b"A=old\n" + b"".join(b"K%d=%s\n" % (number, b"x" * 100) for number in range(80))
NEW = OLD.replace(b"A=old\n", b"A=new\n")


def prepare_commit(stores):
    stores.write(stores.running, NEW)
    stores.committed.write_bytes(OLD)


def prepare_set(stores):
    stores.write(stores.running, OLD)


def prepare_first_set(stores):
    stores.restart()
    stores.committed.write_bytes(OLD)


# what is done, the world before, the command, the copy that it changes
WRITES = {
    "commit": (prepare_commit, ("commit",), "committed"),
    "set": (prepare_set, ("set", "A=new"), "running"),
    "first set after a start": (prepare_first_set, ("set", "A=new"), "running"),
}


def copy_now(stores, copy):
    path = getattr(stores, copy)
    return path.read_bytes() if path.exists() else None


def left_over(stores):
    return [file for folder in (stores.run, stores.flash) if folder.exists()
            for file in folder.iterdir() if file.name.endswith(".new")]


@pytest.mark.parametrize("write", WRITES)
@pytest.mark.parametrize("do", ["kill", "half"])
def test_killed_at_each_call_in_turn(stores, write, do):
    prepare, command, copy = WRITES[write]
    prepare(stores)
    before = copy_now(stores, copy)
    calls = stores.calls_of(*command)
    assert len(calls) > 8 and copy_now(stores, copy) == NEW
    found = set()
    for at, (call, _) in enumerate(calls, 1):
        if do == "half" and call != "write":
            continue
        prepare(stores)
        done = stores.tool_with_faults(*command, at=at, do=do)
        assert done.returncode == -signal.SIGKILL
        now = copy_now(stores, copy)
        assert now in (before, NEW), f"torn when killed at call {at}, {call}"
        found.add(now)
        assert stores.tool("get", "A").stdout in (b"old\n", b"new\n")
        assert stores.tool(*command).returncode == 0, "the next writer cannot go on"
        assert copy_now(stores, copy) == NEW
        assert left_over(stores) == [] or now == NEW
    assert found == ({before} if do == "half" else {before, NEW})


@pytest.mark.parametrize("write", WRITES)
@pytest.mark.parametrize("error", [errno.ENOSPC, errno.EIO, errno.EROFS])
def test_each_call_failing_in_turn(stores, write, error):
    prepare, command, copy = WRITES[write]
    prepare(stores)
    before = copy_now(stores, copy)
    calls = stores.calls_of(*command)
    failures = 0
    for at, (call, path) in enumerate(calls, 1):
        prepare(stores)
        done = stores.tool_with_faults(*command, at=at, do=error)
        now = copy_now(stores, copy)
        assert now in (before, NEW), f"torn when call {at}, {call}, failed"
        if done.returncode == 0:
            assert now == NEW, f"call {at}, {call} {path}, failed unnoticed"
        else:
            failures += 1
            assert os.strerror(error).encode() in done.stderr
            # Only the folder of the committed copy can fail after the replacement.
            assert now == before or path == str(stores.flash)
        assert left_over(stores) == []
        if at % 4 == 0:  # in any case the next writer gets through
            assert stores.tool(*command).returncode == 0 and copy_now(stores, copy) == NEW
    assert failures >= 6


def test_a_copy_that_cannot_be_closed_does_not_count(stores):
    prepare_commit(stores)
    at = stores.calls_of("commit").index(("close", str(stores.flash / "nvram.new"))) + 1
    prepare_commit(stores)
    assert stores.tool_with_faults("commit", at=at, do=errno.ENOSPC).returncode == 2
    assert stores.committed.read_bytes() == OLD


def test_the_committed_copy_is_on_the_medium_before_it_counts(stores):
    prepare_commit(stores)
    calls = [call for call in stores.calls_of("commit") if call[1].startswith(str(stores.flash))]
    new = str(stores.flash / "nvram.new")
    assert calls[-8:] == [
        ("create", new), ("write", new), ("fsync", new), ("close", new),
        ("rename", str(stores.committed)),
        ("open", str(stores.flash)), ("fsync", str(stores.flash)), ("close", str(stores.flash))]


def test_a_commit_makes_sure_of_one_that_was_killed_at_its_end(stores):
    prepare_commit(stores)
    sync = ("fsync", str(stores.flash))
    last = stores.calls_of("commit").index(sync) + 1
    assert sync not in stores.calls_of("commit"), "there is nothing left to do"

    def kill_at_its_end():
        prepare_commit(stores)
        assert stores.tool_with_faults("commit", at=last, do="kill").returncode == -signal.SIGKILL
        assert stores.committed.read_bytes() == NEW  # but its folder may not be on the medium yet

    kill_at_its_end()
    calls = stores.calls_of("commit")
    assert sync in calls
    assert sync not in stores.calls_of("commit")
    kill_at_its_end()
    again = calls.index(sync) + 1
    assert stores.tool_with_faults("commit", at=again, do=errno.EIO).returncode == 2
    assert sync in stores.calls_of("commit"), "it is still left to do"


def test_what_a_killed_writer_left_is_removed(stores):
    prepare_commit(stores)
    (stores.flash / "nvram.new").write_bytes(b"half a li")
    (stores.run / "nvram.new").write_bytes(b"half a li")
    assert stores.tool("set", "B=1").returncode == 0
    assert stores.tool("commit").returncode == 0
    assert left_over(stores) == []
    assert stores.committed.read_bytes() == NEW + b"B=1\n"


def test_a_disk_that_is_full_in_the_middle_of_the_copy(stores):
    prepare_commit(stores)

    def limit():  # the kernel itself then cuts the write short
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))

    for command in (("commit",), ("set", "A=newer")):
        done = stores.tool(*command, preexec_fn=limit)
        assert (done.returncode, left_over(stores)) == (2, [])
    assert stores.committed.read_bytes() == OLD
    assert stores.running.read_bytes() == NEW


def rounds_of(content, keys):
    """The round that each key of a churned store has, once the store is known to be whole."""
    lines = content.split(b"\n")
    assert lines[-1] == b"" and len(lines) == keys + 1
    rounds = []
    for number, line in enumerate(lines[:-1]):
        head, fill = line.split(b":")
        key, value = head.split(b"=")
        assert key == b"K%d" % number and fill == b"x" * (50 * (number + 1))
        rounds.append(int(value))
    return rounds


def test_killed_at_any_time_a_few_hundred_times(stores):
    keys = 24
    command = stores.driver_command("nvram", "churn", keys)
    stores.write(stores.running, b"".join(
        b"K%d=0:%s\n" % (number, b"x" * (50 * (number + 1))) for number in range(keys)))
    stores.tool("commit")
    last = 0
    chance = random.Random(4711)
    for _ in range(300):
        with subprocess.Popen(command, env=stores.environment(), stdout=subprocess.PIPE) as child:
            assert child.stdout.readline() == b"started\n"
            time.sleep(chance.uniform(0, 0.01))
            assert child.poll() is None, "it ended by itself"
            child.kill()
        for copy in (stores.committed, stores.running):
            rounds = rounds_of(copy.read_bytes(), keys)
            # Set in the order of the keys: the first ones may be one round ahead.
            assert rounds == sorted(rounds, reverse=True) and rounds[0] - rounds[-1] <= 1
            if copy == stores.committed:
                assert rounds[0] >= last
                last = rounds[0]
    assert last > 10, "hardly anything was written"
    assert stores.tool("commit").returncode == 0
    assert stores.committed.read_bytes() == stores.running.read_bytes()
