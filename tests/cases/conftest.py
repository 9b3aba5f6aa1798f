"""Turns each case file into a test: the real program answers its requests in an emulated gateway.

gateway/FORMAT.md describes the files, and the options below at its end.
"""

import functools
import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "gateway"))

from cpectl_sim import GatewayError, base, case, check, places  # noqa: E402

CASES = Path(__file__).resolve().parent


def pytest_addoption(parser):
    group = parser.getgroup("cases")
    group.addoption("--program", action="append", metavar="PATH", default=[],
                    help="a cpectl to run the cases on (repeatable; also CPECTL_SIM_PROGRAM, "
                         "default: the build's)")
    group.addoption("--platform", metavar="DIR", help="the stock platform libraries")
    group.addoption("--recording", metavar="DIR", help="the recording libraries")
    group.addoption("--lib-root", metavar="DIR", help="system root whose libraries cpectl uses")
    group.addoption("--qemu", metavar="PATH", help="static qemu-user program that runs cpectl")
    group.addoption("--only", action="append", metavar="NAME", default=[],
                    help="only cases whose path contains NAME (repeatable)")


class CaseFailed(Exception):
    """What differed, in words."""


@functools.cache
def is_static(program):
    """Whether a program loads nothing: what it needs of the platform is linked in."""
    headers = subprocess.run(["readelf", "-lW", program], check=True, capture_output=True).stdout
    return b" INTERP " not in headers


def skip_what_needs_loading(loaded):
    """Skips a case that a static program cannot take: without a library, or with libcurl."""
    sections = [section for step in loaded.steps for section in step.world]
    if any(section.name == "library" and section.words[-1] == "absent" for section in sections):
        pytest.skip("a static program: its libraries cannot be absent")
    if any((step.arguments or [""])[0].startswith("checkOta") for step in loaded.steps):
        pytest.skip("a static program: it cannot load libcurl")


class CaseItem(pytest.Item):
    """One case on one program."""

    def __init__(self, *, place, **others):
        super().__init__(**others)
        self.place = place

    def runtest(self):
        loaded = case.load(self.path)
        if is_static(self.place.program):
            skip_what_needs_loading(loaded)
        shared = self.session.case_directory
        name = f"{self.path.relative_to(CASES)}/{self.name}"
        directory = shared / name.replace("/", "__")
        shutil.rmtree(directory, ignore_errors=True)
        failures = check.run_case(loaded, directory, self.place,
                                  base.ensure(shared / "base"))
        if failures:
            raise CaseFailed("\n".join([*failures, f"the gateway was kept in {directory}"]))
        shutil.rmtree(directory)

    def repr_failure(self, excinfo):
        if isinstance(excinfo.value, (CaseFailed, case.CaseError, GatewayError)):
            return f"{self.path.relative_to(PROJECT)}\n{excinfo.value}"
        return super().repr_failure(excinfo)

    def reportinfo(self):
        return self.path, None, str(self.path.relative_to(CASES))


class CaseFile(pytest.File):
    def collect(self):
        for name, place in self.config.case_programs:
            yield CaseItem.from_parent(self, name=name, place=place)


def _programs(config):
    """The programs to run the cases on, by names that tell them apart."""
    option = config.getoption
    named = option("program") or [None]
    found = [places.find(program=program, platform=option("platform"),
                         recording=option("recording"), lib_root=option("lib_root"),
                         qemu=option("qemu")) for program in named]
    return [(os.path.relpath(place.program, PROJECT), place) for place in found]


def pytest_configure(config):
    try:
        config.case_programs = _programs(config)
    except GatewayError as error:
        raise pytest.UsageError(str(error)) from None


def pytest_sessionstart(session):
    """Kept gateways lie below pytest's own temporary directory, one part a worker."""
    session.case_directory = session.config._tmp_path_factory.getbasetemp() / "cases"


def pytest_generate_tests(metafunc):
    """Tests that ask for a `place` run on each program."""
    if "place" in metafunc.fixturenames:
        names, found = zip(*metafunc.config.case_programs)
        metafunc.parametrize("place", found, ids=names)


def pytest_collection_modifyitems(config, items):
    """Other tests than cases: --only chooses among them by their names, too."""
    for item in items:
        row = getattr(item, "callspec", None) and item.callspec.params
        if row and row.get("name") == "checkOta" and is_static(row["place"].program):
            item.add_marker(pytest.mark.skip(reason="a static program: it cannot load libcurl"))
    only = config.getoption("only")
    if only:
        items[:] = [item for item in items if isinstance(item, CaseItem)
                    or any(part in item.nodeid for part in only)]


def pytest_collect_file(file_path, parent):
    if file_path.suffix or CASES not in file_path.parents:
        return None
    only = parent.config.getoption("only")
    name = str(file_path.relative_to(CASES))
    if only and not any(part in name for part in only):
        return None
    return CaseFile.from_parent(parent, path=file_path)
