"""The root in which the costs are counted, one for each process of the tests."""
import pathlib
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools" / "bench"))

import root as gateway_root  # noqa: E402


@pytest.fixture(scope="session")
def root(tmp_path_factory):
    folder = tmp_path_factory.mktemp("bench") / "root"
    with gateway_root.Root(folder, without=("sqlite", "loaded", "plain", "linked")) as made:
        yield made
