#!/usr/bin/python3
"""Runs the fuzz entry points, one after the other, and says what each one reached.

usage: tools/harden/fuzz.py [--seconds N] [--programs DIR] [TARGET...]

Each starts from the seeds that seeds.py makes and from what earlier runs found interesting, which
is kept in build/fuzz-corpus. An input that breaks something is kept in build/fuzz-findings; once
mended, it belongs into tests/fuzz/regress/TARGET. Ends with 1 when there is such an input.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
from dataclasses import dataclass
from pathlib import Path

import seeds

PROJECT = Path(__file__).resolve().parents[2]
FUZZ = PROJECT / "tests/fuzz"
REGRESS = FUZZ / "regress"
PROGRAMS = PROJECT / "build/fuzz/tests/fuzz"
CORPUS = PROJECT / "build/fuzz-corpus"
FINDINGS = PROJECT / "build/fuzz-findings"

LONGEST_UNIT = 25  # seconds for one input, whose slowest take hundredths, on a busy machine
_FUNCTION = re.compile(r"^(UN)?COVERED_FUNC: hits: \d+ edges: (\d+)/(\d+) (.*) (\S+):\d+$")
_NAME = re.compile(r"(?:\(anonymous namespace\)::)?([\w~]+)(?:\[abi:\w+\])?(?:\(.*)?$")


@dataclass
class Run:
    """What came of running one entry point."""

    target: str
    status: int
    output: str
    found: list  # inputs that broke something

    def number(self, pattern, otherwise=0):
        found = re.findall(pattern, self.output)
        return int(found[-1]) if found else otherwise

    def executions(self):
        return self.number(r"stat::number_of_executed_units: (\d+)")

    def edges(self):
        return self.number(r" cov: (\d+) ")

    def features(self):
        return self.number(r" ft: (\d+) ")

    def functions(self):
        """{name: (edges reached, edges)} of the program's own code."""
        found = {}
        for line in self.output.splitlines():
            match = _FUNCTION.match(line)
            if match and "/src/" in match[5]:
                name = _NAME.search(match[4])
                name = name[1] if name else match[4]
                reached, edges = found.get(name, (0, 0))
                found[name] = reached + int(match[2]), edges + int(match[3])
        return found


def work_folder():
    """A folder in memory for the files of the gateway that the entry points make."""
    shared = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    return tempfile.TemporaryDirectory(prefix="cpectl-fuzz-", dir=shared)


def run(target, options, inputs, programs=PROGRAMS, seconds=60):
    """Runs an entry point with libFuzzer's options on folders or files of inputs."""
    with work_folder() as folder:
        findings = Path(folder) / "findings"
        findings.mkdir()
        environment = {**os.environ, "TMPDIR": folder, "ASAN_OPTIONS": "detect_leaks=0",
                       "UBSAN_OPTIONS": "print_stacktrace=1"}
        done = subprocess.run(
            # What the commands print is of no interest. They free nothing, by design.
            [programs / f"fuzz_{target}", "-close_fd_mask=1", "-rss_limit_mb=0",
             f"-timeout={LONGEST_UNIT}", f"-artifact_prefix={findings}/", *options, *inputs],
            env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.PIPE, check=False, timeout=seconds + 120)
        kept = []
        for path in findings.iterdir():
            FINDINGS.mkdir(parents=True, exist_ok=True)
            kept.append(Path(shutil.copy(path, FINDINGS / f"{target}-{path.name}")))
        return Run(target, done.returncode, done.stderr.decode("utf-8", "replace"), kept)


def regress(target, programs=PROGRAMS):
    """Runs the inputs that once broke something; None when there is none."""
    inputs = sorted(path for path in (REGRESS / target).glob("*"))
    return run(target, [], inputs, programs) if inputs else None


def dictionary(target):
    path = FUZZ / f"{target}.dict"
    return [f"-dict={path}"] if path.exists() else []


def fuzz(target, seconds, seed_folder, programs=PROGRAMS, corpus=CORPUS, options=()):
    """Fuzzes for some seconds; what is new goes to the corpus folder."""
    mine = corpus / target
    mine.mkdir(parents=True, exist_ok=True)
    given = [f"-max_total_time={seconds}", "-print_final_stats=1", *dictionary(target), *options]
    return run(target, given, [mine, seed_folder / target], programs, seconds)


def coverage(target, seed_folder, programs=PROGRAMS, corpus=CORPUS):
    """What the seeds and the corpus reach, function by function."""
    return run(target, ["-runs=0", "-print_coverage=1"],
               [path for path in (corpus / target, seed_folder / target) if path.exists()],
               programs)


def report(done, reached):
    functions = reached.functions().values()
    touched = [pair for pair in functions if pair[0]]
    print(f"{done.target:14}{done.executions():12}{done.edges():8}{done.features():10}"
          f"{len(touched):9} of {len(functions):3}{sum(pair[0] for pair in touched):8} of "
          f"{sum(pair[1] for pair in touched):4}   {len(done.found) or 'none'}", flush=True)
    for path in done.found:
        print(f"    {path}", flush=True)
    if done.status:
        print(done.output[-4000:], flush=True)


def main():
    parser = argparse.ArgumentParser(description="runs the fuzz entry points")
    parser.add_argument("--seconds", type=int, default=600, help="for each (default 600)")
    parser.add_argument("--programs", type=Path, default=PROGRAMS)
    parser.add_argument("targets", nargs="*", metavar="TARGET")
    options = parser.parse_args()
    broken = 0
    print(f"{'entry point':14}{'executions':>12}{'edges':>8}{'features':>10}"
          f"{'functions':>16}{'their edges':>16}   findings", flush=True)
    with tempfile.TemporaryDirectory(prefix="cpectl-seeds-") as folder:
        seed_folder = Path(folder)
        seeds.make(seed_folder)
        for target in options.targets or seeds.TARGETS:
            again = regress(target, options.programs)
            if again and again.status:
                print(f"{target}: an input of tests/fuzz/regress breaks something again\n"
                      f"{again.output[-4000:]}", flush=True)
            done = fuzz(target, options.seconds, seed_folder, options.programs)
            report(done, coverage(target, seed_folder, options.programs))
            broken += bool(done.status) + bool(again and again.status)
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
