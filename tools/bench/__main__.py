"""Measures whole runs of cpectl beside other programs, in one run and one table.

    ./dev bench [--rounds N] [--json]

Every candidate is started once a round, in an order that is new every round, all on one processor;
times and peak sizes are medians (and for busy machines the limit of the fastest tenth). valgrind
counts the instructions, strace the system calls: these repeat exactly.
"""
import argparse
import json
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

import candidates  # noqa: E402
import measure  # noqa: E402
import root as gateway_root  # noqa: E402

SECTIONS = [
    ("for scale", candidates.SCALE),
    ("commands that start no shell", candidates.QUIET),
    ("commands whose texts go through the shell, beside these texts alone",
     candidates.shell_pairs()),
    ("the over-the-air check against a local server", candidates.OTA),
    ("the store by itself: one operation on 100 keys", candidates.STORES),
    *((f"growth with the work: {series[0].name.split(',')[0]}", series)
      for series in candidates.GROWTH),
]


def measure_all(root, rounds):
    """A record for each candidate, by its name."""
    every = [candidate for _, section in SECTIONS for candidate in section]
    records = {}
    for candidate, (median, fast, size) in zip(every, measure.times(root, every, rounds)):
        calls, libraries = measure.system_calls(root, candidate)
        records[candidate.name] = {
            "microseconds": median, "fastest_tenth": fast, "kib": size,
            "instructions": measure.instructions(root, candidate), "calls": calls,
            "libraries": libraries, "beside": candidate.beside}
    for record in records.values():
        beside = records[record["beside"]]
        for name in ("microseconds", "fastest_tenth", "kib", "instructions"):
            record[f"{name}_times"] = record[name] / beside[name]
    return records


def print_table(records):
    print(f"{'':47} {'wall us':>9} {'x':>5} {'fast x':>6} {'instr.':>9} {'x':>6} "
          f"{'peak KiB':>8} {'x':>5} {'calls':>5} {'libs':>4}")
    for title, section in SECTIONS:
        print(f"\n{title}")
        for candidate in section:
            record = records[candidate.name]
            print(f"  {candidate.name:45} {record['microseconds']:9.0f} "
                  f"{record['microseconds_times']:5.2f} {record['fastest_tenth_times']:6.2f} "
                  f"{record['instructions']:9} {record['instructions_times']:6.2f} "
                  f"{record['kib']:8} {record['kib_times']:5.2f} {record['calls']:5} "
                  f"{len(record['libraries']):4}")
    print("\nx: times the empty C program; in the pairs, times the one that it stands beside. fast: "
          "the limit of\nthe fastest tenth. calls: system calls up to the answer. libs: shared "
          "libraries loaded. Instructions\nand calls are those of the program itself, without what "
          "it starts.")


def main():
    parser = argparse.ArgumentParser(prog="./dev bench",
                                     formatter_class=argparse.RawDescriptionHelpFormatter,
                                     description=__doc__.split("\n\n", 2)[2])
    parser.add_argument("--rounds", type=int, default=100)
    parser.add_argument("--json", action="store_true", help="print JSON instead of a table")
    options = parser.parse_args()
    with gateway_root.Root() as root:
        records = measure_all(root, options.rounds)
    if options.json:
        print(json.dumps(records, indent=1))
    else:
        print_table(records)


if __name__ == "__main__":
    main()
