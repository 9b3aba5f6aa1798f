"""The documents are in order, and what is generated is what the contract says today."""

import json
import re
import subprocess
from pathlib import Path

import jsonschema
import pytest

MANUALS = sorted(path.name for path in (Path(__file__).parents[2] / "docs").glob("*.[158]"))
GENERATED = ["docs/reference.html", "docs/cpectl.8", "completion/cpectl.bash"]


@pytest.fixture(scope="module", name="made")
def make_again(project, tmp_path_factory):
    folder = tmp_path_factory.mktemp("made")
    subprocess.run([project / "tools/docs/generate.py", folder], check=True)
    return folder


def generated(folder):
    """The generated files of a folder by their names."""
    found = [folder / name for name in GENERATED]
    found += (folder / "docs/schemas").glob("*/*.json")
    return {str(path.relative_to(folder)): path.read_text("utf-8") for path in found
            if path.exists()}


def test_generated_files_are_as_new(project, made):
    """What differs is stale: './dev docs' makes it anew."""
    now, new = generated(project), generated(made)
    assert sorted(now) == sorted(new)
    assert [name for name in new if now[name] != new[name]] == []


def test_manuals_are_these():
    assert MANUALS == ["cpectl-platform-check.8", "cpectl-sim.1", "cpectl.8", "cpectl.cfg.5",
                       "ipsec.cfg.5", "nvram.1", "pptpuser.cfg.5"]


@pytest.mark.parametrize("name", MANUALS)
def test_manuals_are_clean(project, name):
    """mandoc has nothing to say, but for pages that are not installed here."""
    said = subprocess.run(["mandoc", "-T", "lint", project / "docs" / name], capture_output=True,
                          text=True, check=False, cwd=project / "docs")
    complaints = [line for line in (said.stdout + said.stderr).splitlines()
                  if "referenced manual not found" not in line and "mandoc.db" not in line]
    assert complaints == []


@pytest.mark.parametrize("name", MANUALS)
def test_manuals_refer_to_each_other_by_their_names(project, name):
    pages = set(re.findall(r"^\.Xr (cpectl\S*|\S+\.cfg) (\d)", (project / "docs" / name).read_text(
        "utf-8"), re.MULTILINE))
    assert [page for page in pages if not (project / "docs" / ".".join(page)).exists()] == []


def test_reference_needs_nothing_beside_it(project):
    page = (project / "docs/reference.html").read_text("utf-8")
    assert not re.search(r'<[^>]* (src|href="https?:)|<link|@import|\burl\(', page)
    assert len(page) < 200_000


def test_reference_links_lead_somewhere(project, commands):
    page = (project / "docs/reference.html").read_text("utf-8")
    anchors = set(re.findall(r' id="([^"]*)"', page))
    assert set(commands) <= anchors
    assert set(re.findall(r'href="#([^"]*)"', page)) <= anchors


def test_manual_names_each_command_and_what_shows_its_effect(project, commands):
    page = (project / "docs/cpectl.8").read_text("utf-8")
    for name, command in commands.items():
        assert f"\n.It Ic {name}\n" in page
        if "shown-by" in command.get("takes-effect", {}):
            assert f'"{command["takes-effect"]["shown-by"]}"' in page


# ---- completion

def completed(project, *typed):
    """What completing the last of the typed words offers."""
    script = (f"source '{project}/completion/cpectl.bash'; COMP_WORDS=(\"$@\"); "
              "COMP_CWORD=$(($# - 1)); handler=$(complete -p \"$1\"); handler=${handler#* -F }; "
              "${handler% *}; printf '%s\\n' \"${COMPREPLY[@]}\"")
    shown = subprocess.run(["bash", "-c", script, "bash", *typed], capture_output=True, text=True,
                           check=True)
    assert shown.stderr == ""
    return shown.stdout.split("\n")[:-1]


def test_completion_knows_the_commands(project, commands):
    assert completed(project, "cpectl", "") == list(commands)
    assert completed(project, "cpectl", "devN") == ["devNmSet"]
    assert completed(project, "cpectl", "nothing") == [""]


def test_completion_writes_the_arguments(project):
    assert completed(project, "cpectl", "lanConfSet", "") == \
        ["""'{"lanIp":"","lanNetmask":""}'"""]
    assert completed(project, "cpectl", "reboot", "") == [""]
    assert completed(project, "cpectl", "devNmSet", "{") == [""]


def test_completion_of_the_emulated_gateway_skips_options(project):
    assert completed(project, "cpectl-sim", "--fr") == ["--fresh"]
    assert completed(project, "cpectl-sim", "--trace", "--state", "/tmp", "devN") == ["devNmSet"]
    assert "/etc" in completed(project, "cpectl-sim", "--state", "/et")


# ---- schemas

def schema(project, kind, name):
    return json.loads((project / f"docs/schemas/{kind}/{name}.json").read_text("utf-8"))


def test_schemas_are_schemas(project, commands):
    for name in commands:
        for kind in ("requests", "answers"):
            jsonschema.Draft202012Validator.check_schema(schema(project, kind, name))


@pytest.mark.parametrize("command, arguments, fits", [
    ("devNmSet", {"devNm": ""}, True),
    ("devNmSet", {"devNm": 5}, False),
    ("devNmSet", {}, False),
    ("offline", {"mac": ""}, False),
    ("pptpdOpen", {"ip": {"start": "a", "end": "b"}, "encrypt": "YES"}, True),
    ("pptpdOpen", {"ip": {"start": "a"}, "encrypt": "YES"}, False),
    ("wanInfoSet", {"WAN3": {"wanType": "DHCP"}}, True),
    ("wanInfoSet", {"WAN5": {"wanType": "DHCP"}}, False),
    ("ipsecConfGet", {"postUrl": "h" * 511}, True),
    ("ipsecConfGet", {"postUrl": "h" * 512}, False),
])
def test_request_schemas_tell_right_from_wrong(project, command, arguments, fits):
    validator = jsonschema.Draft202012Validator(schema(project, "requests", command))
    assert validator.is_valid(arguments) == fits


def test_answer_schemas_fit_the_examples_and_no_others(project, commands):
    """Each answer of the reference fits the schema of its command alone."""
    page = (project / "docs/reference.html").read_text("utf-8")
    shown = re.findall(r"<pre>\$ cpectl (\w+).*\n(\{.*\})\n</pre>", page)
    assert len(shown) == len(commands) - 1  # checkOta answers nothing
    for name, answer in shown:
        fitting = [other for other in commands if jsonschema.Draft202012Validator(
            schema(project, "answers", other)).is_valid(json.loads(answer))]
        assert fitting == [name]
