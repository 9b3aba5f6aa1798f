"""The `nvram` command-line tool."""

import os
import shutil
import subprocess

import pytest


def outcome(done):
    return done.returncode, done.stdout, done.stderr


def test_a_value_is_set_printed_changed_and_removed(stores):
    assert outcome(stores.tool("set", "HOSTNAME=office")) == (0, b"", b"")
    assert outcome(stores.tool("get", "HOSTNAME")) == (0, b"office\n", b"")
    assert outcome(stores.tool("set", "HOSTNAME=home")) == (0, b"", b"")
    assert outcome(stores.tool("get", "HOSTNAME")) == (0, b"home\n", b"")
    assert outcome(stores.tool("unset", "HOSTNAME")) == (0, b"", b"")
    assert outcome(stores.tool("get", "HOSTNAME")) == (1, b"", b"")
    assert outcome(stores.tool("unset", "HOSTNAME")) == (0, b"", b"")


def test_an_empty_value_is_a_value(stores):
    assert outcome(stores.tool("set", "K=")) == (0, b"", b"")
    assert outcome(stores.tool("get", "K")) == (0, b"\n", b"")


def test_the_first_equals_sign_ends_the_key(stores):
    stores.tool("set", "K=a=b=")
    assert stores.tool("get", "K").stdout == b"a=b=\n"


def test_get_prints_the_bytes_and_show_keeps_to_lines(stores):
    value = b"one\ntwo\\three\r\xff\x1b[0m"
    stores.tool("set", b"K=" + value)
    stores.tool("set", "L=last")
    assert stores.tool("get", "K").stdout == value + b"\n"
    assert stores.tool("show").stdout == b"K=one\\ntwo\\\\three\\r\xff\x1b[0m\nL=last\n"


def test_show_prints_entries_alone(stores):
    stores.write(stores.running, b"junk\nA=1\n\nB=2")
    assert outcome(stores.tool("show")) == (0, b"A=1\nB=2\n", b"")


def test_show_of_an_empty_store(stores):
    assert outcome(stores.tool("show")) == (0, b"", b"")


def test_unset_removes_a_key_wherever_it_is(stores):
    stores.write(stores.running, b"K=1\nA=1\nK=2\n")
    stores.tool("unset", "K")
    assert stores.running.read_bytes() == b"A=1\n"


def test_unset_of_an_absent_key_writes_nothing(stores):
    stores.write(stores.running, b"A=1\njunk\n")
    assert stores.tool("unset", "K").returncode == 0
    assert stores.running.read_bytes() == b"A=1\njunk\n"


def test_commit(stores):
    stores.tool("set", "A=1")
    assert not stores.committed.exists()
    assert outcome(stores.tool("commit")) == (0, b"", b"")
    assert stores.committed.read_bytes() == b"A=1\n"


@pytest.mark.parametrize("words", [
    [], ["get"], ["get", "A", "B"], ["set"], ["set", "A"], ["set", "A=1", "B=2"], ["unset"],
    ["show", "A"], ["commit", "now"], ["restore"], [""], ["GET", "A"]])
def test_wrong_use_prints_the_usage_and_ends_with_2(stores, words):
    done = stores.tool(*words)
    assert (done.returncode, done.stdout) == (2, b"")
    assert done.stderr.startswith(b"usage: nvram get KEY")
    assert not stores.run.exists()


@pytest.mark.parametrize("word", ["-h", "--help"])
def test_help(stores, word):
    done = stores.tool(word)
    assert (done.returncode, done.stderr) == (0, b"")
    assert done.stdout.startswith(b"usage: nvram get KEY")


def test_failures_say_what_and_why(stores):
    stores.flash.rmdir()
    stores.tool("set", "A=1")
    assert outcome(stores.tool("commit")) == (
        2, b"", b"nvram: cannot commit: No such file or directory\n")
    assert outcome(stores.tool("set", "=1")) == (
        2, b"", b"nvram: cannot set: Invalid argument\n")
    assert outcome(stores.tool("set", "A\rB=1")) == (
        2, b"", b"nvram: cannot set A\rB: Invalid argument\n")
    stores.running.unlink()
    stores.running.mkdir()
    assert outcome(stores.tool("get", "A")) == (
        2, b"", b"nvram: cannot get A: Invalid argument\n")
    assert stores.tool("show").returncode == 2
    assert stores.tool("unset", "A").returncode == 2


@pytest.mark.parametrize("command", [("get", "A"), ("show",), ("--help",)])
def test_output_that_cannot_be_written_is_a_failure(stores, command):
    stores.tool("set", "A=1")
    with open("/dev/full", "wb") as full:
        done = stores.tool(*command, stdout=full)
    assert done.returncode == 2
    assert b"No space left" in done.stderr


def test_a_script_can_cut_a_shown_line(stores):
    stores.tool("set", "LAN_IF_MAC=00:11:22:33:44:55")
    stores.tool("set", "LAN_IP=192.168.1.1")
    done = subprocess.run(f"'{stores.programs.tool}' show | grep LAN_IF_MAC | cut -d '=' -f 2",
                          shell=True, env=stores.environment(), stdout=subprocess.PIPE, check=True)
    assert done.stdout == b"00:11:22:33:44:55\n"


@pytest.mark.skipif(os.geteuid() != 0, reason="only root can make a program of another user")
def test_a_program_with_more_rights_than_its_caller_takes_no_folders_from_it(stores):
    stores.tool("set", "MINE=1")
    for folder in (stores.memory, stores.run, stores.folder, *stores.folder.parents[:2]):
        os.chmod(folder, 0o755)
    os.chmod(stores.running, 0o644)
    copy = stores.folder / "nvram"
    shutil.copy(stores.programs.tool, copy)
    os.chown(copy, 65534, 65534)

    def shown():
        return subprocess.run([copy, "show"], env=stores.environment(), check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE).stdout

    os.chmod(copy, 0o755)
    assert shown() == b"MINE=1\n"
    os.chmod(copy, 0o4755)
    assert b"MINE" not in shown()


def test_an_empty_variable_counts_as_unset(stores):
    opened = [path for _, path in stores.calls_of("get", "K", CPECTL_RUN_DIR="")]
    assert opened[0].endswith("/nvram") and opened[0] != "/nvram"
