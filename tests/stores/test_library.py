"""What the calls of libnvram.so and libmvram.so promise."""

import errno
import os
import subprocess

import pytest

EVERY_BYTE = bytes(range(1, 256))
EINVAL = (-1, errno.EINVAL)
EFBIG = (-1, errno.EFBIG)


@pytest.mark.parametrize("prefix", ["nvram", "mvram"])
def test_a_value_is_seen_by_another_process_at_once(stores, prefix):
    writer, reader = stores.library(prefix), stores.library(prefix)
    assert reader.get(b"HOSTNAME") is None
    for value in (b"office", b"", b"a=b", b" two words "):
        assert writer.set(b"HOSTNAME", value)[0] == 0
        assert reader.get(b"HOSTNAME") == value


def test_every_byte_survives_in_every_place(stores):
    library = stores.library()
    values = [EVERY_BYTE, EVERY_BYTE[::-1], EVERY_BYTE * 250]
    for byte in range(1, 256):
        one = bytes([byte])
        values += [one, one + b"after", b"before" + one, b"\\" + one, one + b"\\", one * 3]
    for number, value in enumerate(values):
        key = b"K%d" % (number % 50)
        assert library.set(key, value)[0] == 0
        assert library.get(key) == value
    assert stores.running.read_bytes().count(b"\n") == 50, "a value has broken its line"


def test_every_byte_but_three_can_stand_in_a_key(stores):
    library = stores.library()
    forbidden = (b"=", b"\n", b"\r")
    for byte in range(1, 256):
        one = bytes([byte])
        for key in (one, b"a" + one, one + b"z"):
            if one in forbidden:
                assert library.set(key, b"v") == EINVAL
                assert library.get(key) is None
            else:
                assert library.set(key, b"v" + key)[0] == 0
                assert library.get(key) == b"v" + key


def test_limits(stores):
    library = stores.library()
    assert library.set(b"", b"v") == EINVAL
    assert library.set(b"k" * 255, b"v")[0] == 0
    assert library.set(b"k" * 256, b"v") == EINVAL
    assert library.set(b"LONG", b"v" * 65535)[0] == 0
    assert library.get(b"LONG") == b"v" * 65535
    assert library.set(b"LONG", b"v" * 65536) == EFBIG
    assert library.get(b"LONG") == b"v" * 65535


def test_a_store_grows_to_its_limit_and_no_further(stores):
    library = stores.library()
    for number in range(15):
        assert library.set(b"K%d" % number, b"v" * 65535)[0] == 0
    room = (1 << 20) - stores.running.stat().st_size
    last = len(b"LAST=\n")
    assert library.set(b"LAST", b"v" * (room - last + 1)) == EFBIG
    assert library.get(b"LAST") is None
    assert library.set(b"LAST", b"v" * (room - last))[0] == 0
    assert stores.running.stat().st_size == 1 << 20
    assert library.get(b"LAST") == b"v" * (room - last)
    assert library.commit()[0] == 0


def test_null_is_refused(stores):
    library = stores.library()
    assert library.set(None, b"v") == EINVAL
    assert library.set(b"K", None) == EINVAL
    assert library.get(None) is None
    assert not stores.run.exists()


def test_a_text_stays_valid_when_its_key_changes(stores):
    library = stores.library()
    library.set(b"K", b"first")
    assert library.call("hold", b"K") == "held"
    for number in range(200):
        library.set(b"K", b"%d" % number * 20)
        library.get(b"K")
    assert bytes.fromhex(library.call("held")) == b"first"


def test_asking_again_for_the_same_takes_no_memory(stores):
    library = stores.library()
    library.set(b"A", b"same")
    library.set(b"B", b"same")
    address_a, _ = library.get_with_address(b"A")
    address_b, _ = library.get_with_address(b"B")
    assert address_a != address_b, "a caller that changes one text would change two"
    library.set(b"A", b"other")
    library.get(b"A")
    library.set(b"A", b"same")
    assert library.get_with_address(b"A")[0] == address_a
    assert library.get_with_address(b"B")[0] == address_b


def test_keys_keep_the_order_of_their_first_set(stores):
    library = stores.library()
    for key, value in ((b"Z", b"1"), (b"A", b"2"), (b"M", b"3"), (b"A", b"changed")):
        library.set(key, value)
    assert stores.running.read_bytes() == b"Z=1\nA=changed\nM=3\n"


def test_an_unchanged_value_is_not_written(stores):
    library = stores.library()
    for value in (b"v", b"", b"line\nline\\"):
        library.set(b"K", value)
        before = os.stat(stores.running)
        assert library.set(b"K", value)[0] == 0
        after = os.stat(stores.running)
        assert (after.st_ino, after.st_mtime_ns) == (before.st_ino, before.st_mtime_ns)


def test_a_key_is_no_prefix_of_another(stores):
    stores.write(stores.running, b"WAN1_TYPE_OLD=a\nWAN1=b\nXWAN1_TYPE=c\nWAN1_TYPE=d\n")
    library = stores.library()
    assert library.get(b"WAN1_TYPE") == b"d"
    assert library.get(b"WAN1_TYP") is None
    assert library.get(b"WAN1_TYPE=d") is None
    assert library.get(b"WAN1") == b"b"


# ---- running and committed copy ----


def test_a_restart_goes_back_to_the_last_commit(stores):
    library = stores.library()
    library.set(b"A", b"1")
    library.commit()
    library.set(b"A", b"2")
    library.set(b"B", b"3")
    assert stores.committed.read_bytes() == b"A=1\n"
    stores.restart()
    assert library.get(b"A") == b"1"
    assert library.get(b"B") is None
    assert not stores.run.exists(), "reading makes no running copy"
    library.set(b"C", b"4")
    assert stores.running.read_bytes() == b"A=1\nC=4\n"


def test_a_commit_before_any_set_leaves_the_flash_alone(stores):
    library = stores.library()
    assert library.commit()[0] == 0
    assert not stores.committed.exists()
    stores.committed.write_bytes(b"A=1\n")
    assert library.commit()[0] == 0
    assert stores.committed.read_bytes() == b"A=1\n"


def test_an_unchanged_commit_writes_nothing_to_flash(stores):
    library = stores.library()
    library.set(b"A", b"1")
    library.commit()
    before = [(entry.name, os.stat(entry)) for entry in sorted(stores.flash.iterdir())]
    folder = os.stat(stores.flash)
    assert library.commit()[0] == 0
    assert [(entry.name, os.stat(entry)) for entry in sorted(stores.flash.iterdir())] == before
    assert os.stat(stores.flash).st_mtime_ns == folder.st_mtime_ns
    writing = {"create", "write", "rename", "unlink", "mkdir"}
    assert [call for call in stores.calls_of("commit")
            if call[0] in writing and call[1].startswith(str(stores.flash))] == []


def test_the_second_store_is_another_and_is_never_committed(stores):
    first, second = stores.library("nvram"), stores.library("mvram")
    first.set(b"K", b"first")
    second.set(b"K", b"second")
    first.commit()
    assert (first.get(b"K"), second.get(b"K")) == (b"first", b"second")
    assert [entry.name for entry in stores.flash.iterdir()] == ["nvram"]
    stores.restart()
    assert (first.get(b"K"), second.get(b"K")) == (b"first", None)


def test_files_are_for_their_owner_alone(stores):
    library = stores.library()
    library.set(b"ADMIN_AUTH", b"s3cret")
    library.commit()
    assert os.stat(stores.run).st_mode & 0o777 == 0o700
    for file in (*stores.run.iterdir(), *stores.flash.iterdir()):
        assert os.stat(file).st_mode & 0o777 == 0o600, file


# ---- files that no writer of ours has left like that ----

ODD_FILES = [
    # why, file, what a reader finds, file after a set of NEW to 1
    ("an empty file", b"", {b"A": None}, b"NEW=1\n"),
    ("a last line without a newline", b"A=1\nB=2", {b"B": b"2"}, b"A=1\nB=2\nNEW=1\n"),
    ("a line without =", b"junk\nA=1\n", {b"A": b"1", b"junk": None}, b"A=1\nNEW=1\n"),
    ("a line that begins with =", b"=x\nA=1\n", {b"A": b"1"}, b"A=1\nNEW=1\n"),
    ("empty lines", b"\n\nA=1\n\n", {b"A": b"1"}, b"A=1\nNEW=1\n"),
    ("a line with a NUL", b"A=1\0\nB=2\n", {b"A": None, b"B": b"2"}, b"B=2\nNEW=1\n"),
    ("blocks of zeros", b"\0" * 5000 + b"\nB=2\n" + b"\0" * 99, {b"B": b"2"}, b"B=2\nNEW=1\n"),
    ("a key twice", b"A=1\nA=2\n", {b"A": b"1"}, b"A=1\nA=2\nNEW=1\n"),
    ("the set key twice", b"NEW=7\nA=1\nNEW=8\n", {b"NEW": b"7"}, b"NEW=1\nA=1\n"),
    ("backslashes of no escape", b"A=C:\\dir\\\n", {b"A": b"C:\\dir\\"}, b"A=C:\\dir\\\nNEW=1\n"),
    ("line ends of another system", b"A=1\r\n", {b"A": b"1\r"}, b"A=1\r\nNEW=1\n"),
    ("blanks are part of the text", b" A = 1 \n", {b" A ": b" 1 "}, b" A = 1 \nNEW=1\n"),
    ("no valid UTF-8", b"A=\xff\xc3\n", {b"A": b"\xff\xc3"}, b"A=\xff\xc3\nNEW=1\n"),
]


@pytest.mark.parametrize("why, file, found, after", ODD_FILES, ids=[row[0] for row in ODD_FILES])
def test_odd_files(stores, why, file, found, after):
    stores.write(stores.running, file)
    library = stores.library()
    for key, value in found.items():
        assert library.get(key) == value, why
    assert library.set(b"NEW", b"1")[0] == 0
    assert stores.running.read_bytes() == after, why


def test_a_value_written_by_hand_in_another_way_counts_as_unchanged(stores):
    stores.write(stores.running, b"A=C:\\dir\n")
    assert stores.library().set(b"A", b"C:\\dir")[0] == 0
    assert stores.running.read_bytes() == b"A=C:\\dir\n"


def test_a_file_beyond_the_limit_is_neither_read_nor_destroyed(stores):
    huge = b"A=1\n" + b"x" * (1 << 20)
    stores.write(stores.running, huge)
    stores.committed.write_bytes(b"A=0\n")
    library = stores.library()
    assert library.get(b"A") is None
    assert library.set(b"A", b"2") == EFBIG
    assert library.commit() == EFBIG
    assert stores.running.read_bytes() == huge
    assert stores.committed.read_bytes() == b"A=0\n"


def test_an_unreadable_committed_copy_is_not_taken_for_an_empty_one(stores):
    stores.committed.write_bytes(b"x" * ((1 << 20) + 1))
    library = stores.library()
    assert library.get(b"A") is None
    assert library.set(b"A", b"1") == EFBIG
    assert not stores.running.exists()


def test_an_unreadable_committed_copy_is_replaced_by_a_commit(stores):
    library = stores.library()
    library.set(b"A", b"1")
    stores.committed.write_bytes(b"x" * ((1 << 20) + 1))
    assert library.commit()[0] == 0
    assert stores.committed.read_bytes() == b"A=1\n"


@pytest.mark.parametrize("place", ["running", "committed", "new", "lock"])
def test_symbolic_links_are_not_followed(stores, place):
    victim = stores.folder / "victim"
    victim.write_bytes(b"A=victim\n")
    stores.run.mkdir()
    link = {"running": stores.running, "committed": stores.committed,
            "new": stores.run / "nvram.new", "lock": stores.run / "nvram.lock"}[place]
    link.symlink_to(victim)
    library = stores.library()
    assert library.get(b"A") is None
    result = library.set(b"A", b"1")
    if place == "new":  # what a killed writer may have left is cleared away
        assert result[0] == 0 and not link.exists()
    else:
        assert result == (-1, errno.ELOOP)
    assert victim.read_bytes() == b"A=victim\n"


def test_a_commit_replaces_a_symbolic_link(stores):
    victim = stores.folder / "victim"
    victim.write_bytes(b"A=victim\n")
    library = stores.library()
    library.set(b"A", b"1")
    stores.committed.symlink_to(victim)
    assert library.commit()[0] == 0
    assert victim.read_bytes() == b"A=victim\n"
    assert stores.committed.read_bytes() == b"A=1\n" and not stores.committed.is_symlink()


def test_other_kinds_of_files_are_refused_and_nobody_waits_for_a_pipe(stores):
    stores.run.mkdir()
    os.mkfifo(stores.running)
    library = stores.library()
    assert library.get(b"A") is None
    assert library.set(b"A", b"1") == EINVAL
    stores.running.unlink()
    stores.running.mkdir()
    assert library.get(b"A") is None
    assert library.set(b"A", b"1")[0] == -1


def test_a_missing_flash_folder_fails_the_commit_only(stores):
    stores.flash.rmdir()
    library = stores.library()
    assert library.set(b"A", b"1")[0] == 0
    assert library.commit() == (-1, errno.ENOENT)
    assert library.get(b"A") == b"1"
    assert not stores.flash.exists()


def test_a_run_folder_that_cannot_be_made_fails_the_set(stores):
    stores.run = stores.memory / "missing" / "run"
    library = stores.library()
    assert library.set(b"A", b"1") == (-1, errno.ENOENT)
    assert library.get(b"A") is None


def test_a_long_folder_name_is_refused(stores):
    stores.run = stores.memory.joinpath(*["x" * 200] * 25)
    library = stores.library()
    assert library.get(b"A") is None
    assert library.set(b"A", b"1") == (-1, errno.ENAMETOOLONG)


# ---- the libraries as files ----

EXPORTS = {"libnvram.so": {"nvram_get", "nvram_set", "nvram_commit"},
           "libmvram.so": {"mvram_get", "mvram_set"}}


@pytest.mark.parametrize("name", EXPORTS)
def test_a_library_has_its_name_and_exports_its_calls_alone(programs, name):
    dynamic = programs.dynamic_section(name)
    assert f"soname: [{name}]" in dynamic
    symbols = subprocess.run(["nm", "-D", "--defined-only", programs.platform / name], check=True,
                             text=True, stdout=subprocess.PIPE).stdout
    assert {line.split()[-1] for line in symbols.splitlines()} == EXPORTS[name]
    needed = [line for line in dynamic.splitlines() if "(NEEDED)" in line]
    if not programs.sanitized:
        assert len(needed) == 1 and "libc." in needed[0], "needs more than libc"
