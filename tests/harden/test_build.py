"""The release is built so that a broken buffer ends it instead of serving an attacker."""

import subprocess

import pytest

from cpectl_sim import places


@pytest.fixture(name="read")
def make_read():
    program = places.find().program
    return lambda *options: subprocess.run(["readelf", "-W", *options, program], check=True,
                                           stdout=subprocess.PIPE, text=True).stdout


def test_it_is_loaded_at_a_random_place(read):
    assert "DYN (Position-Independent Executable file)" in read("-h")


def test_its_tables_are_read_only_and_its_stack_is_no_code(read):
    segments = [line.split() for line in read("-l").splitlines()]
    flags = {words[0]: " ".join(words[6:-1]) for words in segments if len(words) > 7}
    assert flags["GNU_RELRO"] == "R"
    assert flags["GNU_STACK"] == "RW"
    assert not [words for words in segments if words[:1] == ["LOAD"] and "RWE" in words]


@pytest.mark.parametrize("check", ["__stack_chk_fail", "__vsnprintf_chk", "__fprintf_chk"])
def test_it_checks_its_buffers(read, check):
    assert f" {check}@" in read("--dyn-syms")
