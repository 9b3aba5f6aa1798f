"""What runs of the program cost, in what repeats exactly: instructions and system calls.

Beside an empty program, or beside the program's shell calls alone, counted in the same root.
"""
import dataclasses
import functools

import pytest

import candidates
import measure
import targets

EMPTY = candidates.SCALE[0]
LIMITS = {column: limit for column, _, limit in targets.QUIET_LIMITS}
STORES = {"libnvram.so", "libmvram.so"}
WORK = 2.0  # what a command that uses the shell may add, in empty programs


def named(series):
    return pytest.mark.parametrize("candidate", series, ids=lambda candidate: candidate.name)


@functools.cache
def instructions_of_empty(root):
    return measure.instructions(root, EMPTY)


def limit_of(candidate, column):
    return targets.FLOORS.get((candidate.name, column), LIMITS[column])


@named(candidates.QUIET)
def test_a_command_without_a_shell_stays_small(root, candidate):
    times = measure.instructions(root, candidate) / instructions_of_empty(root)
    calls, libraries = measure.system_calls(root, candidate)
    assert times <= limit_of(candidate, "instructions_times")
    assert calls <= limit_of(candidate, "calls")
    assert set(libraries) <= {"libc.so.6", "libcjson.so.1"} | STORES


@pytest.mark.parametrize("candidate, times_allowed, calls_allowed", [
    ("cpectl --help", 2.4, 60),
    ("cpectl lanConfSet, unchanged", 2.2, 90),
    ("cpectl lanConfSet, changed", 2.6, 110),  # a change and its commit are some 30 calls
])
def test_others_stay_as_they_are(root, candidate, times_allowed, calls_allowed):
    candidate = next(each for each in candidates.OTHERS if each.name == candidate)
    assert measure.instructions(root, candidate) <= times_allowed * instructions_of_empty(root)
    assert measure.system_calls(root, candidate)[0] <= calls_allowed


# The one with the shortest shell call, and the one that does most beside its calls.
PAIRS = {candidate.name: candidate for candidate in candidates.shell_pairs()}


@pytest.mark.parametrize("command", ["cpectl reboot", "cpectl setAdmPass"])
def test_a_command_adds_little_to_its_shell_calls(root, command):
    command = PAIRS[command]
    alone = PAIRS[command.beside]
    added = measure.instructions(root, command) - measure.instructions(root, alone)
    assert added <= WORK * instructions_of_empty(root)


@pytest.mark.parametrize("series", candidates.GROWTH, ids=lambda series: series[0].name)
def test_the_cost_grows_no_faster_than_the_work(root, series):
    small, middle, large = (measure.instructions(root, candidate) for candidate in series)
    first = (middle - small) / (series[1].size - series[0].size)
    last = (large - middle) / (series[2].size - series[1].size)
    assert 0 < last <= targets.GROWTH_LIMIT * first


def test_the_check_for_firmware_costs_what_curl_costs(root):
    curl, check = (measure.instructions(root, dataclasses.replace(candidate, whole=False))
                   for candidate in candidates.OTA[:2])
    assert check <= 1.1 * curl
