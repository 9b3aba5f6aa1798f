"""What the tests of the emulated gateway share: gateways in temporary directories."""

import subprocess
import sys
from pathlib import Path

import pytest

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "gateway"))

from cpectl_sim import base, case, check, places, run, world  # noqa: E402


@pytest.fixture(scope="session", name="base_dir")
def make_base(tmp_path_factory):
    return base.ensure(tmp_path_factory.getbasetemp() / "base")


@pytest.fixture(name="gateway")
def make_gateway(tmp_path, base_dir):
    """An empty gateway."""
    return check.Gateway(tmp_path / "gateway", places.find(), base_dir)


@pytest.fixture(name="prepare")
def make_prepare(gateway):
    """Changes the gateway as the text of a scenario says."""
    def prepare(scenario):
        world.apply(case.parse(scenario).steps[0].world, gateway.world, gateway.root)
    return prepare


@pytest.fixture(name="shell")
def make_shell(gateway, monkeypatch):
    """Runs a text as the program's `sh -c` would; returns what came of it."""
    monkeypatch.setattr(run, "PROGRAM", "/bin/sh")
    return lambda command: gateway.request(["-c", command])


@pytest.fixture(name="tool")
def make_tool(gateway, monkeypatch):
    """Runs a busybox tool as the program: nothing of it counts as a shell text."""
    monkeypatch.setattr(run, "PROGRAM", "/bin/busybox")
    return lambda *arguments: gateway.request(arguments)


@pytest.fixture(name="sim")
def make_sim(tmp_path):
    """Runs cpectl-sim on a state of this test."""
    def sim(*arguments, before=(), state=tmp_path / "state"):
        return subprocess.run(
            [*before, PROJECT / "gateway/cpectl-sim", "--state", state, *arguments],
            capture_output=True, text=True, timeout=120, check=False)
    return sim
