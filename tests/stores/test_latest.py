"""A process that asks for many keys reads the store once, and still misses no change."""

import os
import subprocess
import time

import pytest

pytestmark = pytest.mark.timing

SETTLED = 2.6  # seconds after which a process relies on what it has read


def reads_of(library, path):
    """How often a library's process opens the file from now on, as a function."""
    tracer = subprocess.Popen(
        ["strace", "-f", "-e", "trace=openat", "-p", str(library.process.pid)],
        stderr=subprocess.PIPE, text=True)
    assert "attached" in tracer.stderr.readline()

    def count():
        tracer.terminate()
        return sum(str(path) in line for line in tracer.communicate(timeout=60)[1].splitlines())

    return count


def asked_and_settled(stores, content=b"K=old\nL=1\n"):
    """A library that has read a store that had not changed for a while, and relies on that."""
    stores.write(stores.running, content)
    library = stores.library()
    time.sleep(SETTLED)
    assert library.get(b"K") == b"old"
    return library


def test_a_store_that_stays_is_read_once(stores):
    library = asked_and_settled(stores)
    count = reads_of(library, stores.running)
    for _ in range(20):
        assert library.get(b"K") == b"old"
        assert library.get(b"L") == b"1"
        assert library.get(b"M") is None
    assert count() == 0


def set_by_tool(stores):
    assert stores.tool("set", "K=new").returncode == 0


def edited_in_place(stores):
    with open(stores.running, "r+b") as file:
        file.write(b"K=new")


def edited_with_its_time_set_back(stores):
    before = os.stat(stores.running)
    edited_in_place(stores)
    os.utime(stores.running, ns=(before.st_atime_ns, before.st_mtime_ns))


def replaced_with_its_time_set_back(stores):
    before = os.stat(stores.running)
    beside = stores.running.with_name("beside")
    beside.write_bytes(b"K=new\nL=1\n")
    os.utime(beside, ns=(before.st_atime_ns, before.st_mtime_ns))
    os.rename(beside, stores.running)


@pytest.mark.parametrize("change", [
    set_by_tool, edited_in_place, edited_with_its_time_set_back, replaced_with_its_time_set_back])
def test_a_change_by_another_process_is_seen(stores, change):
    library = asked_and_settled(stores)
    change(stores)
    assert library.get(b"K") == b"new"


def test_its_own_change_is_seen(stores):
    library = asked_and_settled(stores)
    for value in (b"a", b"b", b"c"):
        assert library.set(b"K", value)[0] == 0
        assert library.get(b"K") == value


def test_changes_in_quick_succession_are_seen(stores):
    """Contents of one size, made within one tick of the file system's clock, by hand and by set."""
    library = stores.library()
    stores.write(stores.running, b"K=---\n")
    with open(stores.running, "r+b", buffering=0) as file:
        for number in range(300):
            os.pwrite(file.fileno(), b"K=%03d" % number, 0)
            assert library.get(b"K") == b"%03d" % number
    for number in range(300):
        assert library.set(b"K", b"%03d" % number)[0] == 0
        assert library.get(b"K") == b"%03d" % number


def test_a_restart_leads_back_to_the_committed_copy(stores):
    stores.write(stores.committed, b"K=committed\n")
    library = asked_and_settled(stores)
    stores.running.unlink()
    assert library.get(b"K") == b"committed"
    time.sleep(SETTLED)
    assert library.get(b"K") == b"committed"
    set_by_tool(stores)
    assert library.get(b"K") == b"new"


def test_a_store_that_goes_away_is_empty(stores):
    library = asked_and_settled(stores)
    stores.running.unlink()
    assert library.get(b"K") is None
    stores.write(stores.running, b"K=back\n")
    assert library.get(b"K") == b"back"


def test_a_store_that_cannot_be_read_any_more_gives_nothing(stores):
    library = asked_and_settled(stores)
    stores.running.unlink()
    stores.running.symlink_to("elsewhere")
    assert library.get(b"K") is None
