#!/usr/bin/python3
"""The program as it is built for each architecture: its size, its budget, what it needs.

    tools/bench/program.py show           the sizes of what is built, and the largest symbols
    tools/bench/program.py check NAME     fails when NAME takes 5 % more than its budget, or needs
                                          another library than libc and cJSON, or a part of the C++
                                          run-time library
"""
import pathlib
import platform
import re
import subprocess
import sys
import typing

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUDGET = pathlib.Path(__file__).resolve().parent / "size_budget"
HERE = platform.machine().replace("_", "-")  # x86-64
TOLERANCE = 1.05
LARGEST = 15

LIBRARIES = {"libc.so.6", "libcjson.so.1"}
LOADER = re.compile(r"ld[-.]")  # libc's own; on some machines it holds the stack protector's guard
# Exceptions, guards, memory, text and streams. (__cxa_atexit and __cxa_finalize are libc's.)
CXX_RUNTIME = re.compile(r"__cxa_(?!atexit|finalize)\w|__gxx_|_Unwind_|_Zn[wa]|_Zd[la]|_ZSt\d|"
                         r"_ZNSs|_ZNSt7__cxx11|_ZNSo|_ZNSi")


class Program(typing.NamedTuple):
    path: str      # below build/
    symbols: str   # the same before it was stripped
    nm: str        # reads them
    needs: set = frozenset(LIBRARIES)
    note: str = ""


PROGRAMS = {
    HERE: Program("cpectl", "release/src/cpectl.symbols", "nm"),
    "armhf": Program("armhf/src/cpectl", "armhf/src/cpectl.symbols", "arm-linux-gnueabihf-nm"),
    "mipsel": Program("mipsel/src/cpectl", "mipsel/src/cpectl.symbols", "mipsel-linux-gnu-nm"),
    "mips": Program("mips/src/cpectl", "mips/src/cpectl.symbols", "mips-linux-gnu-nm"),
    "musl": Program("musl/src/cpectl", "musl/src/cpectl.symbols", "nm", frozenset(),
                    "with libc, cJSON and the stores in it"),
}


def size_of(program):
    """Bytes; None when it is not built."""
    path = ROOT / "build" / program.path
    return path.stat().st_size if path.exists() else None


def built():
    """The size of each program by its architecture; None for what is not built."""
    return {name: size_of(program) for name, program in PROGRAMS.items()}


def budgets():
    lines = (line.split() for line in BUDGET.read_text().splitlines() if not line.startswith("#"))
    return {name: int(size) for name, size in lines}


def output(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout


def largest_symbols(program):
    """(bytes, kind, name) of the largest symbols that take room in the file, largest first."""
    lines = output(program.nm, "--size-sort", "--reverse-sort", "--print-size", "--demangle",
                   "--radix=d", ROOT / "build" / program.symbols).splitlines()
    rows = (line.split(maxsplit=3) for line in lines)
    return [(int(size), kind, name) for _, size, kind, name in rows if kind not in "bB"][:LARGEST]


def print_largest_symbols(program):
    for size, kind, name in largest_symbols(program):
        print(f"{size:10}  {kind}  {name}")


def show():
    allowed = budgets()
    print(f"{'':10} {'bytes':>8} {'budget':>8}")
    for name, program in PROGRAMS.items():
        size, budget = size_of(program), allowed.get(name)
        if size is None:
            print(f"{name:10} could not be built here")
            continue
        share = f"{budget:8} {100 * size / budget:6.1f} %" if budget else f"{'none':>8}"
        print(f"{name:10} {size:8} {share}  {program.note}".rstrip())
    for name, program in PROGRAMS.items():
        if size_of(program) is not None:
            print(f"\n{name}: the largest symbols in bytes (t: code, r and d: data)")
            print_largest_symbols(program)


def size_complaint(size, budget):
    if budget is None:
        return f"there is no budget in {BUDGET.relative_to(ROOT)}"
    if size > budget * TOLERANCE:
        return f"{size} bytes are {100 * size / budget - 100:.1f} % more than its budget"
    return None


def libraries_complaint(path, needs):
    needed = set(re.findall(r"\(NEEDED\).*\[(.+)\]", output("readelf", "-dW", path)))
    more = sorted(name for name in needed - needs if not LOADER.match(name))
    return f"it needs {', '.join(more)}" if more else None


def runtime_complaint(path, nm):
    names = (line.split()[-1] for line in output(nm, path).splitlines())
    found = sorted(name for name in names if CXX_RUNTIME.match(name))
    return f"of the C++ run-time library it has {', '.join(found)}" if found else None


def check(name):
    """Prints what is wrong with a program; whether something is."""
    program = PROGRAMS[name]
    folder = ROOT / "build"
    size = size_of(program)
    print(f"{name}: {size} bytes, the budget is {budgets().get(name)}")
    too_large = size_complaint(size, budgets().get(name))
    if too_large:
        print_largest_symbols(program)
    complaints = [too_large, libraries_complaint(folder / program.path, program.needs),
                  runtime_complaint(folder / program.symbols, program.nm)]
    for complaint in filter(None, complaints):
        print(f"{name}: {complaint}")
    return any(complaints)


def main():
    if sys.argv[1:] == ["show"]:
        show()
    elif len(sys.argv) == 3 and sys.argv[1] == "check":
        sys.exit(check(HERE if sys.argv[2] == "release" else sys.argv[2]))
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
