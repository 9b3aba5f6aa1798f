#!/usr/bin/python3
"""Counts what the stages of ./dev test left in a folder and tells what failed.

    results.py stage FOLDER NAME    the counts of one stage, on one line
    results.py report FOLDER        every failure, why tests were skipped, and the total

A stage is NAME.title, NAME.status (of its command), NAME.log and, when it ran tests, their outcome
in the form of JUnit: NAME.xml, or for test programs one file each in the folder NAME, beside which
NAME.xml tells how the programs ended. A test that failed but passed in NAME-alone.xml, where it
ran alone, has passed; the report names it. `report` exits with 1 when anything failed or nothing
passed.
"""
import collections
import pathlib
import sys
import xml.etree.ElementTree as ElementTree

FAILURES_SHOWN = 10  # of each stage
LINES_SHOWN = 60
TESTS_FAILED = 1  # the status of pytest when it ran to its end
SKIPPED = 77  # the status of a stage that could not run; the last line of its log says why

Result = collections.namedtuple("Result", "passed failures skips alone", defaults=[()])
Failure = collections.namedtuple("Failure", "name text")


def case_name(case):
    folder = case.get("classname", "").replace(".", "/")
    return f"{folder}: {case.get('name')}" if folder else case.get("name")


def case_failure(case):
    """The text of a failed test, or None."""
    for kind in ("failure", "error"):
        node = case.find(kind)
        if node is not None:
            # CTest puts what the test printed beside the failure, pytest into it.
            return node.text or case.findtext("system-out") or node.get("message", "")
    return None


def read_tests(path):
    passed, failures, skips = 0, [], collections.Counter()
    for case in ElementTree.parse(path).iter("testcase"):
        text = case_failure(case)
        skipped = case.find("skipped")
        if text is not None:
            failures.append(Failure(case_name(case), text))
        elif skipped is not None or case.get("status") in ("notrun", "disabled"):
            reason = skipped.get("message") if skipped is not None else None
            # GoogleTest has the place in the source on a line before.
            skips[(reason or "no reason given").strip().split("\n")[-1]] += 1
        else:
            passed += 1
    return Result(passed, failures, skips)


def read_programs(folder, ends):
    """The tests of several programs, and the programs that broke off before their last test."""
    total = Result(0, [], collections.Counter())
    for path in sorted(folder.glob("*.xml")):
        one = read_tests(path)
        total = Result(total.passed + one.passed, total.failures + one.failures,
                       total.skips + one.skips)
    broken = [end for end in read_tests(ends).failures if "FAILED TEST" not in end.text]
    return total._replace(failures=total.failures + broken)


def passed_names(path):
    if not path.exists():
        return set()
    return {case_name(case) for case in ElementTree.parse(path).iter("testcase")
            if case_failure(case) is None and case.find("skipped") is None}


def excuse(result, passed_alone):
    """The failures of tests that passed alone are none."""
    failures = [failure for failure in result.failures if failure.name not in passed_alone]
    alone = [failure for failure in result.failures if failure.name in passed_alone]
    return result._replace(passed=result.passed + len(alone), failures=failures, alone=alone)


def read_stage(folder, name):
    status = int((folder / f"{name}.status").read_text())
    log = (folder / f"{name}.log").read_text(errors="replace")
    result = Result(0, [], collections.Counter())
    if status == SKIPPED:
        result.skips[log.strip().split("\n")[-1]] += 1
        return result
    tests = folder / f"{name}.xml"
    try:
        if (folder / name).is_dir():
            result = read_programs(folder / name, tests)
        elif tests.exists():
            result = read_tests(tests)
            if status == TESTS_FAILED:
                result = excuse(result, passed_names(folder / f"{name}-alone.xml"))
        elif status == 0:
            result = result._replace(passed=1)
    except (ElementTree.ParseError, FileNotFoundError) as error:
        result.failures.append(Failure("no complete list of results", str(error)))
    if status != 0 and not result.failures and not result.alone:
        result.failures.append(Failure(f"ended with status {status}", log))
    return result


def counts(passed, failed, skipped):
    return f"{passed} passed, {failed} failed, {skipped} skipped"


def show_failure(title, failure, how="FAILED"):
    print(f"\n--- {how}  {title}: {failure.name}")
    lines = failure.text.strip("\n").split("\n")
    if len(lines) > LINES_SHOWN:
        print(f"    ... ({len(lines) - LINES_SHOWN} lines before)")
    for line in lines[-LINES_SHOWN:]:
        print(f"    {line}")


def show_failures(title, failures, folder):
    for failure in failures[:FAILURES_SHOWN]:
        show_failure(title, failure)
    if len(failures) > FAILURES_SHOWN:
        print(f"\n--- FAILED  {title}: {len(failures) - FAILURES_SHOWN} more; see {folder}")


def report(folder):
    passed, failed, skips = 0, 0, collections.Counter()
    for status in sorted(folder.glob("*.status"), key=lambda path: path.stat().st_mtime_ns):
        title = status.with_suffix(".title").read_text().strip()
        result = read_stage(folder, status.stem)
        passed += result.passed
        failed += len(result.failures)
        skips.update(result.skips)
        show_failures(title, result.failures, folder)
        for failure in result.alone:
            show_failure(title, failure, "PASSED ALONE, failed among the others")
    if skips:
        print("\nSkipped:")
        for reason, count in skips.most_common():
            print(f"  {count:4} x {reason}")
    if not passed and not failed:
        print("no test was run")
    print()
    print(counts(passed, failed, skips.total()))
    return 1 if failed or not passed else 0


def main():
    folder = pathlib.Path(sys.argv[2])
    if sys.argv[1] == "report":
        return report(folder)
    result = read_stage(folder, sys.argv[3])
    print(counts(result.passed, len(result.failures), result.skips.total()))
    return 0


if __name__ == "__main__":
    sys.exit(main())
