"""What the tests of this folder share: gateways that take many requests at once, and figures.

A test states with the fixture `figure` how much it tried; the lines are printed at the end, and
`./dev harden` shows them.
"""

import shutil
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parent))

import rig  # noqa: E402


@pytest.fixture(scope="session", name="parts")
def make_parts(tmp_path_factory):
    return rig.Parts(tmp_path_factory.mktemp("parts"))


@pytest.fixture(name="figure")
def make_figure(record_property):
    def state(text):
        record_property("figure", text)

    return state


def pytest_terminal_summary(terminalreporter):
    for report in terminalreporter.getreports("passed"):
        for name, text in report.user_properties:
            if name == "figure":
                terminalreporter.write_line(f"figure: {text}")


@pytest.fixture(name="gateway")
def make_gateway(tmp_path, parts):
    gateway = rig.Gateway(tmp_path / "gateway", parts)
    yield gateway
    shutil.rmtree(gateway.gateway.directory)


@pytest.fixture(name="gateways")
def make_gateways(tmp_path, parts):
    """Makes a new gateway each time; they are removed at the end of the test."""
    made = []

    def make():
        made.append(rig.Gateway(tmp_path / f"gateway-{len(made)}", parts))
        return made[-1]

    yield make
    for gateway in made:
        shutil.rmtree(gateway.gateway.directory)
