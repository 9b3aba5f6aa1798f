#!/usr/bin/python3
"""Checks the rules of the house that no other tool checks.

Each rule below names the files it is for and a pattern that must not occur in them (or, for a rule
about whole files, a function). Comments and texts in quotes are blanked before the code rules look.
"""
import fnmatch
import os
import pathlib
import re
import sys
from typing import NamedTuple

OWN_CODE = ("src/*.h", "src/*.cpp")
ALL_CODE = OWN_CODE + tuple(
    f"{folder}/*.{kind}"
    for folder in ("include", "substitutes", "gateway/native", "tools/platform_check")
    for kind in ("h", "c", "cpp"))
SHIPPED = OWN_CODE + ("include/*.h", "substitutes/*.h", "substitutes/*.c",
                      "substitutes/*.cpp", "tools/platform_check/*.h",
                      "tools/platform_check/*.cpp")
TEXT_FILES = ALL_CODE + ("tests/*.cpp", "tests/*.h", "tests/*.py", "gateway/*.py",
                         "tools/*.py", "tools/*.sh", "dev", "*.md", "*CMakeLists.txt")
NOT_OURS = ("build", ".git", "__pycache__", ".pytest_cache")


class Rule(NamedTuple):
    why: str
    pattern: str
    files: tuple
    but_not: tuple = ()  # beginnings of names


# What may not stand in code, outside comments and quotes.
CODE_RULES = (
    Rule("text calls that do not know the size of their buffer",
         r"(?<![\w.>])(strcpy|strcat|strncpy|strncat|stpcpy|sprintf|vsprintf|strtok|gets)\s*\(",
         ALL_CODE, ("src/tools/banned.h",)),
    Rule("the shell is reached through src/tools only",
         r"(?<![\w.>])(system|popen|execl|execlp|execle|execv|execvp|execve|execvpe|posix_spawnp?)"
         r"\s*\(", OWN_CODE, ("src/tools/",)),
    Rule("records and functions, no classes of our own",
         r"(?<!enum )\bclass\s+\w+|\bvirtual\b|\b(private|protected|public)\s*:", SHIPPED),
    Rule("nothing that needs the C++ run-time library",
         r"\bstd::(string|vector|map|set|unordered_\w+|function|list|deque|shared_ptr|unique_ptr|"
         r"optional<std::string>|thread|[io]?(f|string)?stream|cout|cerr|regex)\b(?!_)|\bthrow\b|"
         r"\btry\s*\{|\bcatch\s*\(|\bdynamic_cast\b|\btypeid\b|\bnew\s+\w", SHIPPED),
    Rule("long has another width on the gateways (but for what ftell() and strtol() give)",
         r"(?<!long )\blong\b(?! long\b|>| \w+ = std::ftell\b|[^;]*std::strtol\b)", SHIPPED),
    Rule("a header opens no namespace for its readers", r"\busing\s+namespace\b",
         ("*.h",)),
)


class FileRule(NamedTuple):
    why: str
    broken: object  # (path, text) -> the line number that breaks the rule, or None
    files: tuple
    but_not: tuple = ()  # beginnings of names


def line_of(pattern):
    def broken(_path, text):
        found = re.search(pattern, text, re.MULTILINE)
        return text.count("\n", 0, found.start()) + 1 if found else None
    return broken


def no_opening_comment(path, text):
    first = re.sub(r"^#!.*\n", "", text)
    opening = {".py": ('"""', "# "), ".sh": ("# ",), "": ("# ",), ".txt": ("# ", "cmake_minimum")}
    return None if first.startswith(opening.get(path.suffix, ("//", "/*"))) else 1


def no_final_newline(_path, text):
    return None if text.endswith("\n") and not text.endswith("\n\n") else text.count("\n") + 1


def no_pragma_once(_path, text):
    return None if "\n#pragma once\n" in text else 1


def own_header_not_first(path, text):
    if not path.with_suffix(".h").exists():
        return None
    first = re.search(r'^#include [<"](.+)[>"]', text, re.MULTILINE)
    return None if first and first[1].split("/")[-1] == f"{path.stem}.h" else 1


def handler_without_comment(_path, text):
    """The first handler whose declaration neither follows a comment nor another declaration."""
    lines = text.split("\n")
    for number, line in enumerate(lines):
        if re.match(r"cJSON\s*\*\s*cpectl_\w+\(", line):
            before = lines[number - 1]
            if not before.startswith("//") and not re.search(r";\s*(//.*)?$", before):
                return number + 1
    return None


FILE_RULES = (
    FileRule("a file opens with what it is for", no_opening_comment,
             ALL_CODE + ("tests/*.cpp", "tests/*.py", "gateway/*.py", "tools/*.py",
                         "tools/*.sh", "dev")),
    FileRule("long has another width on the gateways: a format of <cinttypes>",
             line_of(r'"[^"\n]*%[-+ 0-9.*]*l[diouxX]'), SHIPPED),
    FileRule("blanks at the end of a line", line_of(r"[ \t]+$"), TEXT_FILES),
    FileRule("a tab", line_of(r"\t"), ALL_CODE + ("tests/*.cpp", "*.py", "*.sh", "dev")),
    # In C and C++ clang-format sees to it.
    FileRule("a line of more than 100 characters", line_of(r"^.{101}"), ("*.py", "*.sh", "dev")),
    FileRule("one newline at the end of a file", no_final_newline, TEXT_FILES),
    FileRule("#pragma once in each header", no_pragma_once, ("*.h",)),
    FileRule("a file includes its own header first", own_header_not_first, ("src/*.cpp",)),
    FileRule("each handler's declaration says what it is for", handler_without_comment,
             ("src/platform/handlers.h",)),
)

QUOTED_OR_COMMENT = re.compile(
    r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])\'', re.DOTALL)


def code_only(text):
    """The text with comments and quotes blanked, so that lines keep their numbers."""
    return QUOTED_OR_COMMENT.sub(lambda found: re.sub(r"[^\n]", " ", found[0]), text)


def project_files(root):
    """All files as names from the root on."""
    for folder, folders, names in os.walk(root):
        folders[:] = [name for name in folders if name not in NOT_OURS]
        for name in names:
            path = pathlib.Path(folder, name)
            if path.is_file() and not path.is_symlink():
                yield path.relative_to(root).as_posix()


def is_for(rule, name):
    return (any(fnmatch.fnmatchcase(name, pattern) for pattern in rule.files)
            and not name.startswith(rule.but_not))


def faults_in(root, name):
    code_rules = [rule for rule in CODE_RULES if is_for(rule, name)]
    file_rules = [rule for rule in FILE_RULES if is_for(rule, name)]
    if not code_rules and not file_rules:
        return
    text = (root / name).read_text()
    code = code_only(text)
    for rule in code_rules:
        for found in re.finditer(rule.pattern, code):
            yield name, code.count("\n", 0, found.start()) + 1, rule.why
    for rule in file_rules:
        line = rule.broken(root / name, text)
        if line:
            yield name, line, rule.why


def main():
    root = pathlib.Path(sys.argv[1])
    faults = {fault for name in project_files(root) for fault in faults_in(root, name)}
    for name, line, why in sorted(faults):
        print(f"{name}:{line}: {why}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
