"""What the tests of the documents share."""

import sys
from pathlib import Path

import pytest

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "tools/docs"))

import contract  # noqa: E402


@pytest.fixture(scope="session", name="project")
def find_project():
    return PROJECT


@pytest.fixture(scope="session", name="commands")
def read_commands():
    return contract.commands()
