"""What the program is to cost at most, as ratios to other candidates of the same run."""
import typing

import candidates

SIZE_LIMIT = 100_000  # bytes of the stripped program, where libc and cJSON are not part of it
STATIC = ("musl",)
GROWTH_LIMIT = 1.25  # what one more may cost at a large size, against what it costs at a small one


class Target(typing.NamedTuple):
    who: str
    what: str
    value: float
    limit: float

    def met(self):
        return self.value <= self.limit


# (column, what it is called, limit) of the commands that start no shell
QUIET_LIMITS = [
    ("microseconds_times", "wall time", 1.5),
    ("instructions_times", "instructions", 2.0),
    ("kib_times", "peak resident size", 1.7),
    ("calls", "system calls", 100),
]

# What the tests allow instead, where a target is out of reach: docs/performance.md says why.
FLOORS = {("cpectl wanInfoGet", "instructions_times"): 3.2}


def of_records(records):
    for candidate in candidates.QUIET:
        for column, what, limit in QUIET_LIMITS:
            yield Target(candidate.name, what, records[candidate.name][column], limit)
    for candidate in candidates.shell_pairs()[1::2]:
        yield Target(candidate.name, "wall time",
                     records[candidate.name]["microseconds_times"], 1.1)
    yield Target(candidates.OTA[1].name, "wall time",
                 records[candidates.OTA[1].name]["microseconds_times"], 1.05)
    for series in candidates.GROWTH:
        first, last = (records[candidate.name]["more"] for candidate in series[1:])
        yield Target(series[-1].name, "growth", last / first, GROWTH_LIMIT)


def of_sizes(built):
    for architecture, size in built.items():
        if size and architecture not in STATIC:
            yield Target(architecture, "stripped size", size, SIZE_LIMIT)


def print_verdicts(records, built):
    found = [*of_records(records), *of_sizes(built)]
    missed = [target for target in found if not target.met()]
    print(f"\ntargets: {len(found) - len(missed)} met, {len(missed)} missed")
    for target in missed:
        print(f"  {target.who}: {target.what} {target.value:.2f}, at most {target.limit:g}")
