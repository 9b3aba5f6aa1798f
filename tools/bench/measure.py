"""Measures candidates inside the root: time and peak size, instructions, system calls, libraries."""
import re
import shutil
import statistics
import subprocess

# The last call that belongs to a run: the one that hands its answer over, or its end.
_ANSWER = re.compile(r"(write|writev)\(1, ")
# Debian's valgrind is a script that gives the program a search path for libraries.
_VALGRIND = shutil.which("valgrind.bin") or "valgrind"
_LIBRARY = re.compile(r'openat\(AT_FDCWD, "[^"]*/([^/"]+\.so[.0-9]*)", .*\) = \d+')


def times(root, candidates, rounds):
    """(median, limit of the fastest tenth, peak KiB) of each candidate; times in microseconds."""
    words = []
    for number, candidate in enumerate(candidates):
        words += [str(number), *candidate.words(), "--"]
    done = root.run(["/bench/spawn_times", str(rounds), *words], stdout=subprocess.PIPE, text=True)
    found = []
    for line in done.stdout.splitlines():
        _, size, *row = map(int, line.split())
        row.sort()
        found.append((statistics.median(row) / 1000, row[len(row) // 10] / 1000, size))
    return found


def _prepared(candidate):
    """A command that makes the candidate's world before it starts."""
    variables = [f"export {name}={value}" for name, value in candidate.environment()]
    copies = [f"cp /bench/files/{source} {target}" for source, target in candidate.files.items()]
    return ["/bin/sh", "-c", "; ".join([*variables, *copies, 'exec "$@"']), "sh"]


def instructions(root, candidate):
    """In user space, dynamic loading included; of the program itself, not of what it starts. One
    by one, a debugger counts 1 % less: valgrind tells the program of another processor."""
    done = root.run(
        [*_prepared(candidate), "/bin/sh", "-c", 'VALGRIND_LIB=/bench/valgrind "$@"; true', "sh",
         _VALGRIND, "--tool=callgrind", "--callgrind-out-file=/dev/null", *candidate.command],
        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    return int(re.findall(r"Collected : (\d+)", done.stderr)[-1])


def system_calls(root, candidate):
    """(the number of system calls up to the answer, the libraries loaded)"""
    done = root.run(
        [*_prepared(candidate), "/bin/sh", "-c",
         'strace -o /tmp/calls "$@" >/dev/null; cat /tmp/calls', "sh", *candidate.command],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    lines = done.stdout.splitlines()
    count = next((number for number, line in enumerate(lines, 1) if _ANSWER.match(line)), None)
    libraries = dict.fromkeys(match[1] for match in map(_LIBRARY.match, lines) if match)
    calls = [line for line in lines if not line.startswith(("+++", "---"))]
    return count or len(calls), list(libraries)
