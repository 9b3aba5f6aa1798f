"""Runs the requests of a case in a gateway and compares what came with what is expected."""

import difflib
import shutil
from pathlib import Path

from . import case as case_file
from . import run, snapshot, store, text, trace, world


QEMU_SLACK = 5  # seconds: what it takes to translate the program and its libraries


class Gateway:
    """A gateway under way: its place on disk, what it is like, and its last run."""

    def __init__(self, directory, places, base_dir):
        self.directory = Path(directory)
        self.root = world.make_root(self.directory / "root")
        self.places = places
        self.base_dir = base_dir
        self.world = world.World()
        self.runs = 0

    def request(self, arguments):
        """Runs the program once; returns what came of it."""
        self.runs += 1
        run_dir = self.directory / f"run-{self.runs}"
        before = snapshot.take(self.root)
        stores = {name: store.read(self.root, name) for name in store.FILES}
        result = run.run(self.places, self.world, self.root, self.base_dir, run_dir,
                         [run.PROGRAM, *arguments])
        return Outcome(self.root, run_dir, result, before, snapshot.take(self.root), stores,
                       QEMU_SLACK if self.places.qemu else 0)


class Outcome:
    """What one request left: output, record, files."""

    def __init__(self, root, run_dir, result, before, after, stores_before, slack):
        self.slack = slack  # seconds that its program may take beyond any limit
        self.root = root
        self.run_dir = run_dir
        self.result = result
        self.after = after
        self.changes = snapshot.changes(before, after)
        self.events = trace.read(run_dir)
        self.stores_before = stores_before
        self.stores = {name: store.read(root, name) for name in store.FILES}

    def output(self, name):
        path = self.run_dir / name
        return text.from_bytes(path.read_bytes()) if path.exists() else ""


# ---- comparing

def _difference(title, expected, actual):
    """A failure text that shows two lists of lines against each other, or None when they agree."""
    if expected == actual:
        return None
    lines = difflib.unified_diff(expected, actual, "expected", "came", lineterm="", n=99)
    shown = [text.shorten(line) for line in list(lines)[3:]]
    return "\n".join([f"{title} (- expected, + came):", *("  " + line for line in shown)])


def _output_lines(output):
    """Output as lines that show whether the last one has its end."""
    lines = [text.value_written(line) if line else "" for line in output.split("\n")]
    if lines[-1] == "":
        return lines[:-1]
    return [*lines[:-1], lines[-1] + "   (no newline)"]


def _check_output(section, outcome):
    name = section.name.removesuffix("-raw")
    came = outcome.output(name)
    if section.words == ["any"]:
        return None
    if section.words == ["some"]:
        return None if came else f"{section.title()}: nothing came"
    expected = section.raw() if section.name.endswith("-raw") else section.content()
    return _difference(section.title(), _output_lines(expected), _output_lines(came))


def _check_exit(section, outcome):
    return _difference("[exit]", section.lines, [outcome.result.exit_line()])


def _expected_call(line):
    name, _, rest = line.partition(" ")
    if name == "shell":
        return "shell " + text.value_written(text.value(rest.strip(" ")))
    return text.words_written(text.words(line))


def _check_calls(section, outcome):
    return _difference("[calls]", [_expected_call(line) for line in section.lines],
                       trace.calls(outcome.events))


def _check_effects(section, outcome):
    came = [line for line in trace.calls(outcome.events)
            if line.split(" ", 1)[0] not in ("nvram_get", "mvram_get")]
    return _difference("[effects]", [_expected_call(line) for line in section.lines], came)


def _words_lines(section):
    return [text.words_written(text.words(line)) for line in section.lines]


def _check_scripts(section, outcome):
    return _difference("[scripts]", _words_lines(section), trace.scripts(outcome.events))


def _check_requests(section, outcome):
    return _difference("[requests]", _words_lines(section),
                       trace.requests(outcome.events, outcome.run_dir))


def _entry_lines(entries):
    return [f"{key}={text.value_written(value) if value else ''}"
            for key, value in sorted(entries.items())]


def _check_store(section, outcome):
    content = outcome.stores[section.name]
    expected = {}
    gone = []
    for line in section.lines:
        if section.words == ["now"] and line.startswith("!"):
            gone.append(line[1:])
            continue
        key, equals, value = line.partition("=")
        if not equals:
            raise section.error(f"not KEY=VALUE: {line}")
        expected[key] = text.value(value)
    if section.words == ["now"]:
        content = {key: content[key] for key in content if key in expected or key in gone}
    return _difference(section.title(), _entry_lines(expected), _entry_lines(content))


def _entry(outcome, path):
    return outcome.after.get(path.lstrip("/"))


def _check_file(section, outcome):
    plain, named = section.options()
    path = plain[0]
    if plain[1:] == ["any"]:
        return None
    entry = _entry(outcome, path)
    if entry is None or entry.kind != "file":
        return f"{section.title()}: there is {'no such file' if entry is None else entry.kind}"
    if "mode" in named and entry.mode != int(named["mode"], 8):
        return f"{section.title()}: the mode is {entry.mode:o}"
    expected = section.raw() if plain[-1] == "raw" else section.content()
    return _difference(section.title(), _output_lines(expected),
                       _output_lines(text.from_bytes((outcome.root / path[1:]).read_bytes())))


def _check_no(section, outcome):
    if section.words[0] != "file":
        raise section.error("needs 'file' and a path")
    entry = _entry(outcome, section.words[1])
    return f"{section.title()}: there is a {entry.kind}" if entry else None


def _check_dir(section, outcome):
    entry = _entry(outcome, section.words[0])
    if entry is None or entry.kind != "dir":
        return f"{section.title()}: there is no such directory"
    return None


def _check_symlink(section, outcome):
    entry = _entry(outcome, section.words[0])
    came = [entry.content] if entry and entry.kind == "symlink" else []
    return _difference(section.title(), section.lines, came)


def _check_took(section, outcome):
    parts = " ".join(section.lines).split()
    for limit, seconds in zip(parts[::2], parts[1::2]):
        if limit not in ("at-least", "at-most"):
            raise section.error("needs 'at-least SECONDS' or 'at-most SECONDS'")
        too_quick = limit == "at-least" and outcome.result.took < float(seconds)
        too_slow = limit == "at-most" and outcome.result.took > float(seconds) + outcome.slack
        if too_quick or too_slow:
            return f"[took] {limit} {seconds}: it took {outcome.result.took:.3f} s"
    return None


_CHECKS = {
    "stdout": _check_output, "stdout-raw": _check_output,
    "stderr": _check_output, "stderr-raw": _check_output,
    "exit": _check_exit, "calls": _check_calls, "effects": _check_effects,
    "scripts": _check_scripts, "requests": _check_requests,
    "nvram": _check_store, "mvram": _check_store, "committed": _check_store,
    "file": _check_file, "no": _check_no, "dir": _check_dir, "symlink": _check_symlink,
    "files": lambda section, outcome: None, "took": _check_took,
}


def _named_paths(expected):
    """The paths of which the expectations speak."""
    paths = set()
    for section in expected:
        if section.name in ("file", "dir", "symlink"):
            paths.add(section.words[0])
        elif section.name == "no":
            paths.add(section.words[1])
    return paths


def _check_unnamed(expected, outcome):
    """What happened although no expectation speaks of it."""
    names = {section.name for section in expected}
    if not names & {"stderr", "stderr-raw"} and outcome.output("stderr"):
        yield _difference("[stderr]", [], _output_lines(outcome.output("stderr")))
    if outcome.result.lingering:
        yield "background processes were still running 10 s after the program's end"
    if not names & {"calls", "effects"}:
        if "nvram" in names:
            names.add("committed")
        for name, before in outcome.stores_before.items():
            if name not in names and before != outcome.stores[name]:
                yield _difference(f"[{name}] changed, and no section speaks of it",
                                  _entry_lines(before), _entry_lines(outcome.stores[name]))
    if "files" not in names:
        named = _named_paths(expected)
        for change in outcome.changes:
            if change.path not in named:
                yield f"{change.path} was {change.what}{change.detail}: no section speaks of it"


def _check_outcome(expected, outcome):
    found = [_CHECKS[section.name](section, outcome) for section in expected]
    found += _check_unnamed(expected, outcome)
    return [failure for failure in found if failure]


def run_case(case, directory, places, base_dir):
    """Runs a case in a new directory. Returns failure texts; none when all came as expected."""
    case_file.check(case)
    gateway = Gateway(directory, places, base_dir)
    failures = []
    for number, step in enumerate(case.steps, 1):
        if step.reboot:
            world.reboot(gateway.root)
        world.apply(step.world, gateway.world, gateway.root)
        outcome = gateway.request(step.arguments)
        found = _check_outcome(step.expected, outcome)
        if found and len(case.steps) > 1:
            request = text.shorten(" ".join(map(text.value_written, step.arguments)))
            found.insert(0, f"request {number}: {request}")
        failures += found
    return failures


def remove(directory):
    """Removes the gateway of a case that passed."""
    shutil.rmtree(directory, ignore_errors=True)
