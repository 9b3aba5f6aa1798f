"""The front door as somebody uses it who types ./dev, from wherever they are."""
import json
import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]


@pytest.fixture
def dev(tmp_path):
    """./dev, started in a folder elsewhere whose name has a blank."""
    elsewhere = tmp_path / "some where"
    elsewhere.mkdir()

    def run(*arguments):
        return subprocess.run([ROOT / "dev", *arguments], cwd=elsewhere, text=True,
                              stdin=subprocess.DEVNULL, capture_output=True, check=False)
    run.folder = elsewhere
    return run


def test_help_lists_exactly_the_commands_that_there_are(dev):
    done = dev("help")
    listed = set(re.findall(r"^  ([a-z]+)", done.stdout, re.MULTILINE))
    there = {path.stem for path in (ROOT / "tools/dev").glob("*.sh")
             if "# help: " in path.read_text()}
    assert listed == there
    assert {"run", "test", "help"} <= listed
    assert done.returncode == 0
    assert dev().stdout == dev("--help").stdout == done.stdout


@pytest.mark.parametrize("name", ["nothing", "../dev/run", "", "lib/common", "a b", "-x"])
def test_an_unknown_command_is_refused_in_one_line(dev, name):
    done = dev(name)
    assert done.returncode == 1
    assert done.stdout == ""
    assert done.stderr == f"dev: there is no command '{name}'; './dev help' lists them\n"


def test_run_without_a_command_says_how(dev):
    done = dev("run")
    assert done.returncode == 1
    assert done.stderr.startswith("dev: usage: ./dev run ")


def test_run_help_is_the_program_s_own_listing(dev):
    done = dev("run", "--state", "gateway", "--help")
    assert done.returncode == 255
    assert len(done.stdout.splitlines()) > 40
    assert done.stdout.startswith("getAdmPass")
    assert done.stderr == ""


def test_run_keeps_its_gateway_where_the_caller_says(dev):
    asked = dev("run", "--state", "gateway", "devNmSet", '{"devNm":"two words"}')
    assert json.loads(asked.stdout) == {"fun": "devNmSet", "stat": "ok"}
    assert (asked.returncode, asked.stderr) == (0, "")
    assert (dev.folder / "gateway").is_dir()
    shown = dev("run", "gwDevListGet", "--state", "gateway")
    assert json.loads(shown.stdout)["cbk"]["devNm"] == "two words"


def test_gateway_opens_a_shell_inside(dev):
    # A shell that reads the end of its input leaves with the status of its last command: none.
    done = dev("gateway", "--state", "gateway")
    assert (done.returncode, done.stderr) == (0, "")
