#!/usr/bin/python3
"""Measures whole runs of cpectl beside other programs, in one run and one table.

    ./dev bench [--rounds N] [--json]

Every candidate is started once a round, in an order that is new every round, all on one processor;
times and peak sizes are medians (and for busy machines the limit of the fastest tenth). valgrind
counts the instructions, strace the system calls: these repeat exactly.
"""
import argparse
import json
import pathlib
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

import candidates  # noqa: E402
import measure  # noqa: E402
import root as gateway_root  # noqa: E402
import program  # noqa: E402
import targets  # noqa: E402

SECTIONS = [
    ("for scale", candidates.SCALE),
    ("commands that start no shell", [*candidates.QUIET, *candidates.OTHERS]),
    ("commands whose texts go through the shell, each beside these texts alone",
     candidates.shell_pairs()),
    ("the over-the-air check against a local server, beside curl", candidates.OTA),
    ("the store by itself: one operation on 100 keys", candidates.STORES),
    *((f"growth with the work: {series[0].name.split(',')[0]}", series)
      for series in candidates.GROWTH),
]
RATIOS = ("microseconds", "fastest_tenth", "kib", "instructions")

FOOTNOTE = """
x: times the empty C program; in the pairs, times the one that it stands beside. fast: the same of
the limits of the fastest tenth. instr.: instructions in user space, of the program itself, without
what it starts, but for the commands that use the shell, where everything counts. more: the
instructions for each host, station, line ... more than in the row above. calls: system calls of the
program up to its answer. libs: shared libraries loaded."""


def measure_all(root, rounds):
    """A record for each candidate, by its name."""
    every = [candidate for _, section in SECTIONS for candidate in section]
    records = {}
    for candidate, (median, fast, size) in zip(every, measure.times(root, every, rounds)):
        records[candidate.name] = {"microseconds": median, "fastest_tenth": fast, "kib": size,
                                   "beside": candidate.beside}
    # The requests of the growth work on files that nothing else touches.
    groups = [candidates.everything_but_growth(), candidates.growth()]
    for group, found in zip(groups, measure.counts_of_groups(root, groups)):
        for candidate, record in zip(group, found):
            records[candidate.name].update(record)
    for record in records.values():
        beside = records[record["beside"]]
        for name in RATIOS:
            record[f"{name}_times"] = record[name] / beside[name]
    add_growth(records)
    return records


def add_growth(records):
    for series in candidates.GROWTH:
        for smaller, larger in zip(series, series[1:]):
            more = records[larger.name]["instructions"] - records[smaller.name]["instructions"]
            records[larger.name]["more"] = more / (larger.size - smaller.size)


def print_row(name, record):
    more = f"{record['more']:7.0f}" if "more" in record else " " * 7
    print(f"  {name:42} {record['microseconds']:8.0f} {record['microseconds_times']:6.2f} "
          f"{record['fastest_tenth_times']:6.2f} {record['instructions']:10} "
          f"{record['instructions_times']:7.2f} {more} {record['kib']:6} "
          f"{record['kib_times']:5.2f} {record['calls']:5} {len(record['libraries']):4}")


def print_table(records, built):
    print(f"{'':44} {'wall us':>8} {'x':>6} {'fast x':>6} {'instr.':>10} {'x':>7} {'more':>7} "
          f"{'KiB':>6} {'x':>5} {'calls':>5} {'libs':>4}")
    for title, section in SECTIONS:
        print(f"\n{title}")
        for candidate in section:
            print_row(candidate.name, records[candidate.name])
    print("\nthe stripped program, bytes")
    for architecture, size in built.items():
        print(f"  {architecture:42} {size if size else 'not built here':>8}")
    print(FOOTNOTE)


def main():
    parser = argparse.ArgumentParser(prog="./dev bench",
                                     formatter_class=argparse.RawDescriptionHelpFormatter,
                                     description=__doc__.split("\n\n", 2)[2])
    parser.add_argument("--rounds", type=int, default=100)
    parser.add_argument("--json", action="store_true", help="print JSON instead of a table")
    options = parser.parse_args()
    try:
        with gateway_root.Root() as root:
            records = measure_all(root, options.rounds)
    except subprocess.CalledProcessError as error:
        sys.exit(f"bench: {error.cmd[0]} ended with {error.returncode}; what it said stands above")
    built = program.built()
    if options.json:
        print(json.dumps({"candidates": records, "sizes": built}, indent=1))
    else:
        print_table(records, built)
        targets.print_verdicts(records, built)


if __name__ == "__main__":
    main()
