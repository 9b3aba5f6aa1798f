"""Many writers and readers at once."""

import fcntl
import signal
import subprocess

import pytest

pytestmark = pytest.mark.timing

MILLISECONDS = 2000


def hammer(stores, prefix, processes, threads):
    """Runs the writers; gives the lines that they leave the store with."""
    writers = processes * threads
    children = [
        subprocess.Popen(
            stores.driver_command(prefix, "hammer", number * threads, writers, threads,
                                  MILLISECONDS),
            env=stores.environment(), stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        for number in range(processes)]
    expected = []
    for child in children:
        output, errors = child.communicate(timeout=60)
        assert (child.returncode, errors) == (0, b"")
        expected += output.splitlines(keepends=True)
    return expected


@pytest.mark.parametrize("prefix, processes, threads", [
    ("nvram", 8, 1),
    ("mvram", 2, 4),
])
def test_no_key_is_lost_and_no_value_torn(stores, prefix, processes, threads):
    expected = hammer(stores, prefix, processes, threads)
    assert len(expected) == processes * threads * 4
    written = (stores.run / prefix).read_bytes().splitlines(keepends=True)
    assert sorted(written) == sorted(expected)
    sets = sum(int(line.split(b":")[2]) for line in expected if b"_K0=" in line)
    assert sets > 200, "hardly anything was written"


def test_a_slow_flash_delays_commits_and_nothing_else(stores):
    stores.tool("set", "A=1")
    stores.committed.write_bytes(b"A=0\n")
    slow = stores.flash / "nvram.new"
    first = stores.tool_stopped("commit", call=("fsync", str(slow)))
    try:
        assert stores.tool("set", "A=2").returncode == 0
        assert stores.tool("get", "A").stdout == b"2\n"
        second = subprocess.Popen([stores.programs.tool, "commit"], env=stores.environment())
        with pytest.raises(subprocess.TimeoutExpired):
            second.wait(timeout=0.2)
        assert stores.committed.read_bytes() == b"A=0\n"
    finally:
        first.send_signal(signal.SIGCONT)
    assert (first.wait(timeout=60), second.wait(timeout=60)) == (0, 0)
    assert stores.committed.read_bytes() == b"A=2\n"


def test_a_writer_waits_for_its_turn_and_readers_do_not(stores):
    stores.tool("set", "A=1")
    with open(stores.run / "nvram.lock", "wb") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        with pytest.raises(subprocess.TimeoutExpired):
            subprocess.run([stores.programs.tool, "set", "A=2"], env=stores.environment(),
                           check=False, timeout=0.2)
        assert stores.tool("get", "A").stdout == b"1\n"


def test_a_lock_file_that_is_removed_locks_nobody_out_and_lets_nobody_in(stores):
    stores.tool("set", "A=1")
    path = stores.run / "nvram.lock"
    with open(path, "wb") as old:
        fcntl.flock(old, fcntl.LOCK_EX)
        waiting = subprocess.Popen([stores.programs.tool, "set", "A=2"],
                                   env=stores.environment())
        with pytest.raises(subprocess.TimeoutExpired):
            waiting.wait(timeout=0.2)
        path.unlink()
        with open(path, "wb") as new:
            fcntl.flock(new, fcntl.LOCK_EX)
            fcntl.flock(old, fcntl.LOCK_UN)
            with pytest.raises(subprocess.TimeoutExpired):
                waiting.wait(timeout=0.2)
            assert stores.tool("get", "A").stdout == b"1\n"
        assert waiting.wait(timeout=60) == 0
    assert stores.tool("get", "A").stdout == b"2\n"
