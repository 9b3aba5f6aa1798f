"""What the tests of the VPN commands share: gateways in which other programs can run."""

import shutil
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "transfer"))

import beside  # noqa: E402


@pytest.fixture(scope="session", name="parts")
def make_parts(tmp_path_factory):
    directory = tmp_path_factory.mktemp("parts")
    return beside.place_of(directory), beside.base_of(directory)


@pytest.fixture(name="office")
def make_office(tmp_path, parts):
    office = beside.Office(tmp_path / "gateway", *parts)
    yield office
    shutil.rmtree(office.gateway.directory)
