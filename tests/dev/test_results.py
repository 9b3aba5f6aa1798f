"""The score keeping of ./dev test: every failure counts once, and nothing that failed is lost."""
import os
import pathlib
import re
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]

GOOD = '<testcase classname="a.b" name="good"/>'
BAD = '<testcase classname="a.b" name="bad"><failure message="m">the reason</failure></testcase>'
BAD_ALONE = '<testcase classname="a.b" name="bad"/>'
BAD_SKIPPED = '<testcase classname="a.b" name="bad"><skipped message="m"/></testcase>'
SKIPPED = ('<testcase classname="a.b" name="s"><skipped message="a.cpp:3&#10;no data here"/>'
           '</testcase>')
CRASHED = ('<testcase name="unit.text" status="fail"><failure message=""/>'
           '<system-out>Segmentation fault</system-out></testcase>')
ENDED_BADLY = ('<testcase name="unit.log" status="fail"><failure message=""/>'
               '<system-out>[  FAILED  ] x\n 1 FAILED TEST</system-out></testcase>')


def suite(*cases):
    return f"<testsuites><testsuite>{''.join(cases)}</testsuite></testsuites>"


def stage(folder, name, status, files=(), log=""):
    (folder / f"{name}.title").write_text(f"the {name}\n")
    (folder / f"{name}.status").write_text(f"{status}\n")
    (folder / f"{name}.log").write_text(log)
    for path, text in dict(files).items():
        (folder / path).parent.mkdir(exist_ok=True)
        (folder / path).write_text(text)


def results(*arguments):
    return subprocess.run([ROOT / "tools/dev/results.py", *arguments],
                          capture_output=True, text=True, check=False)


@pytest.mark.parametrize("why, status, files, counts", [
    ("a plain stage counts as one", 0, {}, "1 passed, 0 failed, 0 skipped"),
    ("a plain stage that fails, too", 3, {}, "0 passed, 1 failed, 0 skipped"),
    ("a stage that cannot run here is skipped", 77, {}, "0 passed, 0 failed, 1 skipped"),
    ("tests count each", 1, {"x.xml": suite(GOOD, GOOD, BAD, SKIPPED)},
     "2 passed, 1 failed, 1 skipped"),
    ("a bad status without a failed test is a failure", 2, {"x.xml": suite(GOOD)},
     "1 passed, 1 failed, 0 skipped"),
    ("what failed and passed alone has passed", 1,
     {"x.xml": suite(GOOD, BAD), "x-alone.xml": suite(BAD_ALONE)}, "2 passed, 0 failed, 0 skipped"),
    ("what failed alone as well has failed", 1,
     {"x.xml": suite(GOOD, BAD), "x-alone.xml": suite(BAD)}, "1 passed, 1 failed, 0 skipped"),
    ("what was skipped alone has failed", 1,
     {"x.xml": suite(BAD), "x-alone.xml": suite(BAD_SKIPPED)}, "0 passed, 1 failed, 0 skipped"),
    ("only the test itself counts", 1,
     {"x.xml": suite(BAD), "x-alone.xml": suite(GOOD)}, "0 passed, 1 failed, 0 skipped"),
    ("a run that broke off is not excused", 3,
     {"x.xml": suite(GOOD, BAD), "x-alone.xml": suite(BAD_ALONE)}, "1 passed, 1 failed, 0 skipped"),
    ("half a list is a failure", 0, {"x.xml": "<testsuites><testsuite>"},
     "0 passed, 1 failed, 0 skipped"),
    ("programs: their tests count", 8,
     {"x.xml": suite(ENDED_BADLY), "x/one.xml": suite(GOOD, BAD), "x/two.xml": suite(GOOD)},
     "2 passed, 1 failed, 0 skipped"),
    ("programs: a crash counts beside them", 8,
     {"x.xml": suite(ENDED_BADLY, CRASHED), "x/one.xml": suite(GOOD, BAD)},
     "1 passed, 2 failed, 0 skipped"),
    ("programs: not knowing how they ended is a failure", 0, {"x/one.xml": suite(GOOD)},
     "0 passed, 1 failed, 0 skipped"),
])
def test_stage_counts(tmp_path, why, status, files, counts):
    stage(tmp_path, "x", status, files)
    assert results("stage", tmp_path, "x").stdout == counts + "\n", why


def test_report_tells_each_failure_and_ends_with_the_total(tmp_path):
    stage(tmp_path, "first", 1, {"first.xml": suite(GOOD, BAD, SKIPPED)})
    stage(tmp_path, "second", 4, log="what the build said\n")
    done = results("report", tmp_path)
    assert done.returncode == 1
    assert "FAILED  the first: a/b: bad\n    the reason\n" in done.stdout
    assert "FAILED  the second: ended with status 4\n    what the build said\n" in done.stdout
    assert "1 x no data here" in done.stdout
    assert done.stdout.endswith("\n1 passed, 2 failed, 1 skipped\n")


def test_report_tells_what_passed_only_alone(tmp_path):
    stage(tmp_path, "first", 1, {"first.xml": suite(GOOD, BAD),
                                 "first-alone.xml": suite(BAD_ALONE)})
    done = results("report", tmp_path)
    assert done.returncode == 0
    assert ("PASSED ALONE, failed among the others  the first: a/b: bad\n    the reason\n"
            in done.stdout)
    assert done.stdout.endswith("\n2 passed, 0 failed, 0 skipped\n")


def test_report_says_why_a_stage_was_skipped(tmp_path):
    stage(tmp_path, "first", 77, log="asking\nno such machine here\n")
    stage(tmp_path, "second", 0)
    done = results("report", tmp_path)
    assert done.returncode == 0
    assert "1 x no such machine here\n" in done.stdout
    assert done.stdout.endswith("\n1 passed, 0 failed, 1 skipped\n")


def test_report_of_success(tmp_path):
    stage(tmp_path, "first", 0, {"first.xml": suite(GOOD, SKIPPED)})
    done = results("report", tmp_path)
    assert done.returncode == 0
    assert done.stdout.endswith("\n1 passed, 0 failed, 1 skipped\n")


def test_nothing_passed_is_no_success(tmp_path):
    stage(tmp_path, "first", 0, {"first.xml": suite()})
    assert results("report", tmp_path).returncode == 1


ONCE_BAD = """\
import pathlib
import pytest


def passes_from_now_on(name):
    fresh = not pathlib.Path(name).exists()
    pathlib.Path(name).touch()
    assert not fresh


@pytest.mark.timing
def test_that_measures():
    passes_from_now_on("measured")


@pytest.mark.timing
def test_that_measures_what_is_broken():
    assert False


def test_that_does_not_measure():
    passes_from_now_on("plain")


def test_good():
    pathlib.Path("count").open("a").write("x")
"""


def test_only_what_measures_runs_once_more(tmp_path):
    project, folder = tmp_path / "project", tmp_path / "results"
    for path in (project, folder):
        path.mkdir()
    shutil.copy(ROOT / "pytest.ini", project)
    (project / "test_it.py").write_text(ONCE_BAD)
    done = subprocess.run(
        ["bash", "-c", "source tools/dev/lib/tests.sh; run_pytest x test_it.py"], cwd=ROOT,
        env={**os.environ, "ROOT": project, "BUILD": tmp_path, "RESULTS": folder}, check=False)
    stage(folder, "x", done.returncode)
    report = results("report", folder).stdout
    assert sorted(re.findall("--- (.*): .*: test_(.*)", report)) == [
        ("FAILED  the x", "that_does_not_measure"),
        ("FAILED  the x", "that_measures_what_is_broken"),
        ("PASSED ALONE, failed among the others  the x", "that_measures")]
    assert report.endswith("\n2 passed, 2 failed, 0 skipped\n")
    assert (project / "count").read_text() == "x"
