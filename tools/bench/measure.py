"""Measures candidates inside the root: time and size, instructions, system calls, libraries."""
import concurrent.futures
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
    for candidate in candidates:
        words += [candidate.name.replace(" ", "-"), *candidate.words(), "--"]
    done = root.run(["/bench/spawn_times", str(rounds), *words], stdout=subprocess.PIPE, text=True)
    found = []
    for line in done.stdout.splitlines():
        size, *row = map(int, line.split()[1:])
        row.sort()
        found.append((statistics.median(row) / 1000, row[len(row) // 10] / 1000, size))
    return found


def _prepared(candidate):
    """A command that makes the candidate's world before it starts."""
    variables = [f"export {name}={value}" for name, value in candidate.environment()]
    copies = [f"cp /bench/files/{source} {target}" for target, source in candidate.files.items()]
    return ["/bin/sh", "-c", "; ".join([*variables, *copies, 'exec "$@"']), "sh"]


def instructions(root, candidate):
    """In user space, dynamic loading included. (One by one, a debugger counts 1 % less: valgrind
    tells the program of another processor.) Of all that the candidate starts, too, when it is
    `whole`: then the end of the pipe is waited for, which each of them holds open."""
    options = ["--tool=callgrind", "--callgrind-out-file=/dev/null", "--log-fd=9",
               *(["--trace-children=yes"] if candidate.whole else [])]
    done = root.run(
        [*_prepared(candidate), "/bin/sh", "-c",
         '{ VALGRIND_LIB=/bench/valgrind "$@" 9>&1 >/dev/null 2>/dev/null; } | cat', "sh",
         _VALGRIND, *options, *candidate.command],
        stdout=subprocess.PIPE, text=True)
    counts = re.findall(r"Collected : (\d+)", done.stdout)
    return sum(map(int, counts if candidate.whole else counts[-1:]))


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


def counts(root, candidates):
    """What repeats exactly, of each candidate: a record."""
    found = []
    for candidate in candidates:
        calls, libraries = system_calls(root, candidate)
        found.append({"instructions": instructions(root, candidate), "calls": calls,
                      "libraries": libraries})
    return found


def counts_of_groups(root, groups):
    """The same of lists of candidates that have no file in common, the lists side by side."""
    with concurrent.futures.ThreadPoolExecutor() as pool:
        yield from pool.map(lambda candidates: counts(root, candidates), groups)
