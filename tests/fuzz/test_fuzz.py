"""The fuzz entry points in short: what was once found, and 20 seconds of fuzzing for each.

The long form is `./dev harden fuzz`. Here the corpus is new each time and the first random number
is fixed, so that two runs try much the same.
"""

import re
import subprocess
import sys
from pathlib import Path

import pytest

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "tools/harden"))

import fuzz  # noqa: E402
import seeds  # noqa: E402

SECONDS = 20


@pytest.fixture(scope="session", name="programs", autouse=True)
def make_programs():
    """Up to date, also when only this folder is tested."""
    subprocess.run([PROJECT / "dev", "build", "fuzz"], check=True)


@pytest.fixture(scope="session", name="seed_folder")
def make_seeds(tmp_path_factory):
    folder = tmp_path_factory.mktemp("seeds")
    seeds.make(folder)
    return folder


@pytest.mark.parametrize("target", seeds.TARGETS)
def test_nothing_is_found_in_short(target, seed_folder, tmp_path):
    done = fuzz.fuzz(target, SECONDS, seed_folder, corpus=tmp_path, options=["-seed=1"])
    assert done.status == 0 and not done.found, done.output[-4000:]
    assert done.executions() > len(list((seed_folder / target).iterdir()))


@pytest.mark.parametrize("target", sorted(path.name for path in fuzz.REGRESS.iterdir()))
def test_what_was_found_stays_mended(target):
    done = fuzz.regress(target)
    assert done.status == 0 and not done.found, done.output[-4000:]


def test_requests_reach_every_handler(seed_folder, tmp_path):
    handlers = re.findall(r"^cJSON\* (cpectl_\w+)\(",
                          (PROJECT / "src/platform/handlers.h").read_text(), re.MULTILINE)
    reached = fuzz.coverage("request", seed_folder, corpus=tmp_path).functions()
    assert len(handlers) == len(seeds.command_names())
    assert [name for name in handlers if not reached.get(name, (0, 0))[0]] == []
