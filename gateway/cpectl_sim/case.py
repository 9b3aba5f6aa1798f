"""Reads case and scenario files; FORMAT.md beside this package describes them."""

import json
import re
from dataclasses import dataclass, field
from pathlib import Path

from . import text

_HEADER = re.compile(r"\[([^\]]*)\] *(.*)")

_WORLD = {
    "world", "nvram", "committed", "mvram", "file", "dir", "symlink", "fifo", "absent", "reading",
    "script", "script-text", "net", "start", "neighbours", "hosts", "stations", "wan", "library",
    "http", "env", "output", "time-limit",
}
_REQUEST = {"run", "argv", "run-json", "reboot"}
_EXPECTED = {
    "stdout", "stdout-raw", "stderr", "stderr-raw", "exit", "calls", "effects", "scripts",
    "requests", "no", "files", "took",
}
# Names of both kinds: these last words make an expectation of them.
_AFTERWARDS = {"after", "now", "any"}
_TWO_KINDS = {"nvram", "committed", "mvram", "file", "dir", "symlink"}


class CaseError(ValueError):
    """The file is not written as the format asks for."""


@dataclass
class Section:
    name: str
    words: list
    lines: list
    number: int  # line in the file, for messages

    def is_expectation(self):
        if self.name in _TWO_KINDS:
            return not _AFTERWARDS.isdisjoint(self.options()[0][-2:])
        return self.name in _EXPECTED

    def title(self):
        return "[" + " ".join([self.name, *self.words]) + "]"

    def options(self):
        """The words with their NAME=VALUE words taken out, and those as a dict."""
        plain = [word for word in self.words if "=" not in word]
        named = dict(word.split("=", 1) for word in self.words if "=" in word)
        return plain, named

    def content(self):
        """The content as the text of a file: each line with its end."""
        return "".join(line + "\n" for line in self.lines)

    def raw(self):
        """The content as one JSON string."""
        try:
            return text.from_json(" ".join(self.lines))
        except ValueError as error:
            raise self.error(str(error)) from None

    def error(self, what):
        return CaseError(f"line {self.number}: {self.title()}: {what}")


@dataclass
class Step:
    """One request with the changes before it and what is expected of it."""

    world: list = field(default_factory=list)
    reboot: bool = False
    arguments: list = None
    expected: list = field(default_factory=list)


@dataclass
class Case:
    comment: str
    steps: list


def _sections(lines):
    """Splits the lines of a file into comments and sections."""
    comment = []
    found = []
    indent = None
    empty = 0
    for number, line in enumerate(lines, 1):
        where = f"line {number}: "
        if line != line.rstrip(" \t\r"):
            raise CaseError(where + "blanks at the end; write the text as a JSON string")
        if not line:
            empty += 1
        elif line.startswith("#"):
            comment.append(line.lstrip("# "))
        elif line.startswith("["):
            match = _HEADER.fullmatch(line)
            parts = text.words(match[1]) if match else []
            if not parts:
                raise CaseError(where + "a section starts with [name ...]")
            content = [text.expand(match[2])] if match[2] else []
            found.append(Section(parts[0], parts[1:], content, number))
            indent = None
        elif not line.startswith(" ") or not found:
            raise CaseError(where + "content is indented with blanks, below a section")
        else:
            here = len(line) - len(line.lstrip(" "))
            if indent is None:
                indent = here
            elif here < indent:
                raise CaseError(where + "indented less than the line above")
            else:
                found[-1].lines.extend([""] * empty)
            found[-1].lines.append(text.expand(line[indent:]))
        if line:
            empty = 0
    return " ".join(comment), found


def _arguments(section):
    """The program arguments that a request section gives."""
    if section.name == "argv":
        return [text.value(line) for line in section.lines]
    if len(section.lines) != 1:
        raise section.error("needs one line")
    line = section.lines[0]
    if section.name == "run":
        return line.split(" ", 1)
    parts = json.loads(line)
    if not isinstance(parts, list) or not all(isinstance(part, str) for part in parts):
        raise section.error("needs a JSON array of strings")
    return [text.normal(part) for part in parts]


def parse(content):
    """Reads a case from the text of its file."""
    comment, sections = _sections(content.split("\n"))
    steps = [Step()]
    for section in sections:
        known = section.is_expectation() or section.name in _WORLD | _REQUEST
        if not known:
            raise section.error("no such section")
        if section.is_expectation():
            if steps[-1].arguments is None:
                raise section.error("stands before any request")
            steps[-1].expected.append(section)
            continue
        if steps[-1].arguments is not None:
            steps.append(Step())
        if section.name == "reboot":
            steps[-1].reboot = True
        elif section.name in _REQUEST:
            steps[-1].arguments = _arguments(section)
        else:
            steps[-1].world.append(section)
    return Case(comment, steps)


def load(path):
    """Reads a case file; CaseError names the file."""
    try:
        return parse(Path(path).read_bytes().decode("utf-8"))
    except (ValueError, OSError) as error:
        raise CaseError(f"{path}: {error}") from None


def check(case):
    """Raises CaseError unless the file is a test: requests that each say what comes of them."""
    for step in case.steps:
        if step.arguments is None:
            raise CaseError("a case needs a request, and ends with one")
        names = {section.name for section in step.expected}
        if not names & {"stdout", "stdout-raw"} or "exit" not in names:
            raise CaseError(f"the request {step.arguments!r} needs [stdout] and [exit]")
