"""The score keeping of ./dev test: every failure counts once, and nothing that failed is lost."""
import pathlib
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]

GOOD = '<testcase classname="a.b" name="good"/>'
BAD = '<testcase classname="a.b" name="bad"><failure message="m">the reason</failure></testcase>'
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
