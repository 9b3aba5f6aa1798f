"""What the tests of the contract share: its commands, and the records of all request cases."""

import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parent))

import match  # noqa: E402
import once  # noqa: E402
import record  # noqa: E402
from cpectl_sim import places  # noqa: E402


@pytest.fixture(scope="session", name="commands")
def read_commands():
    return match.contract.commands()


@pytest.fixture(scope="session", name="program")
def find_program():
    return places.find().program


@pytest.fixture(scope="session", name="records")
def make_records(tmp_path_factory):
    """The records of all requests; all test processes of a run share one set."""
    return record.read(once.folder(tmp_path_factory, "contract", record.write))
