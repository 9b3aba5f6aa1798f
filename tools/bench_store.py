#!/usr/bin/python3
"""Measures what the stock NVRAM costs: whole processes that get, set or commit one key, against an
empty program, a bare text file and SQLite.

    tools/bench_store.py [--platform DIR] [--rounds N] [--json]

Wall times are taken in rounds in which every candidate runs once, in random order: the median, and
for busy machines the limit of the fastest tenth. Instructions (user space, dynamic loading
included) are counted by valgrind; they hardly vary.
"""

import argparse
import json
import os
import pathlib
import re
import shutil
import sqlite3
import statistics
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
SOURCES = ROOT / "tests" / "bench"
KEYS = 100  # of about 30 bytes each: what a small router keeps

# name -> (source, further words of the compile command)
PROGRAMS = {
    "empty": ("empty.c", []),
    "plain": ("plain_file.c", []),
    "linked": ("stock_linked.c", ["-L{platform}", "-Wl,-rpath,{platform}", "-lnvram"]),
    "loaded": ("stock_loaded.c", ["-Wl,-rpath,{platform}"]),
    "sqlite": ("sqlite.c", ["-lsqlite3"]),
    "spawn_times": ("spawn_times.c", []),
}

# (what is shown, program, operation). The nvram tool is not compiled here. Each group starts with
# fresh stores, where all that is set is committed; its first program is what the others are
# compared with.
GROUPS = [
    [
        ("empty program", "empty", ""),
        ("get, plain file", "plain", "get"),
        ("get, libnvram linked", "linked", "get"),
        ("get, libnvram loaded on use", "loaded", "get"),
        ("get, nvram tool", "tool", "get"),
        ("get, SQLite", "sqlite", "get"),
        ("set, plain file", "plain", "set"),
        ("set, libnvram linked", "linked", "set"),
        ("set, SQLite", "sqlite", "set"),
        ("set and commit, plain file", "plain", "set+commit"),
        ("set and commit, libnvram linked", "linked", "set+commit"),
        ("set and commit, SQLite", "sqlite", "set+commit"),
    ],
    [
        ("empty program", "empty", ""),
        ("commit unchanged, libnvram linked", "linked", "commit"),
        ("commit unchanged, SQLite", "sqlite", "commit"),
    ],
]


def compile_programs(folder, platform):
    for name, (source, words) in PROGRAMS.items():
        words = [word.format(platform=platform) for word in words]
        subprocess.run(
            ["gcc", "-O2", "-Wall", "-D_GNU_SOURCE", f"-I{ROOT}/include", f"-I{SOURCES}",
             SOURCES / source, "-o", folder / name, *words], check=True)


def fill_stores(run, flash):
    entries = [(f"KEY_{number:03d}", f"some value of key {number}") for number in range(KEYS)]
    text = "".join(f"{key}={value}\n" for key, value in entries)
    for folder in (run, flash):
        for file in folder.iterdir():
            file.unlink()
        for name in ("nvram", "plain"):
            (folder / name).write_text(text)
        with sqlite3.connect(folder / "sqlite") as store:
            store.execute("CREATE TABLE entry(key TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID")
            store.executemany("INSERT INTO entry VALUES(?, ?)", entries)
        store.close()


def command_of(program, operation, folder, platform):
    if program == "tool":
        return [str(platform / "nvram"), operation, "KEY_050"]
    return [str(folder / program), *([operation] if operation else [])]


def measure_times(commands, rounds, folder):
    words = []
    for number, command in enumerate(commands):
        words += [str(number), *command, "--"]
    done = subprocess.run([folder / "spawn_times", str(rounds), *words], check=True,
                          stdout=subprocess.PIPE, text=True)
    times = [sorted(map(int, line.split()[2:])) for line in done.stdout.splitlines()]
    return [(statistics.median(row), row[len(row) // 10]) for row in times]


def count_instructions(command):
    done = subprocess.run(
        ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", *command],
        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, check=True)
    return int(re.search(r"Collected : (\d+)", done.stderr)[1])


def measure_group(group, rounds, folder, platform):
    commands = [command_of(program, operation, folder, platform)
                for _, program, operation in group]
    times = measure_times(commands, rounds, folder)
    counts = [count_instructions(command) for command in commands]
    return [{"what": what, "microseconds": median / 1000, "times": median / times[0][0],
             "times_fastest_tenth": fast / times[0][1],
             "instructions": count, "instruction_times": count / counts[0]}
            for (what, _, _), (median, fast), count in zip(group, times, counts)]


def measure(platform, rounds, folder):
    run = pathlib.Path(tempfile.mkdtemp(prefix="bench_store.", dir="/dev/shm"))
    flash = folder / "flash"
    flash.mkdir()
    os.environ.update(CPECTL_RUN_DIR=str(run), CPECTL_FLASH_DIR=str(flash),
                      BENCH_RUN_DIR=str(run), BENCH_FLASH_DIR=str(flash))
    rows = []
    try:
        compile_programs(folder, platform)
        for group in GROUPS:
            fill_stores(run, flash)
            rows += measure_group(group, rounds, folder, platform)
    finally:
        shutil.rmtree(run)
    return rows


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--platform", type=pathlib.Path,
                        default=ROOT / "build" / "release" / "substitutes",
                        help="folder of libnvram.so and nvram")
    parser.add_argument("--rounds", type=int, default=500)
    parser.add_argument("--json", action="store_true", help="print JSON instead of a table")
    options = parser.parse_args()
    platform = options.platform.resolve()
    if not (platform / "libnvram.so").exists():
        sys.exit(f"bench_store: {platform} holds no libnvram.so; build the release first")

    # The committed copies lie where the build does: on a disk, not in memory.
    with tempfile.TemporaryDirectory(prefix="bench_store.", dir=platform) as folder:
        rows = measure(platform, options.rounds, pathlib.Path(folder))
    if options.json:
        print(json.dumps(rows, indent=1))
        return
    print(f"{'whole process, ' + str(KEYS) + ' keys':36} {'median us':>10} {'x empty':>8} "
          f"{'fastest':>8} {'instr.':>9} {'x empty':>8}")
    for row in rows:
        print(f"{row['what']:36} {row['microseconds']:10.1f} {row['times']:8.2f} "
              f"{row['times_fastest_tenth']:8.2f} "
              f"{row['instructions']:9} {row['instruction_times']:8.2f}")


if __name__ == "__main__":
    main()
