"""Holds the table of docs/injection.md against the code: all texts with values, and no others."""

import re
from collections import Counter

import pytest

from rig import PROJECT

CODE = [path for path in sorted((PROJECT / "src").rglob("*.cpp"))
        if path.name not in ("shell.cpp", "log.cpp")]
LITERAL = re.compile(r'"(?:[^"\\\n]|\\.)*"(?:\s*"(?:[^"\\\n]|\\.)*")*')
PIECE = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
FUNCTION = re.compile(r"^[a-zA-Z][\w:*&<>, ]*[ *&](\w+)\([^;{}]*\{$", re.MULTILINE)
# Formats of other functions than the shell's: what is printed, logged, scanned, or names a key.
NO_SHELL = re.compile(
    r"\b(cpectl_log|text_print|f?printf|snprintf|f?scanf|sscanf|curl_easy_setopt)\s*\($")
KEY = re.compile(r"WAN%d_\w+")


def uncommented(code):
    return re.sub(r'("(?:[^"\\\n]|\\.)*")|//[^\n]*', lambda found: found[1] or "", code)


def texts(code):
    """(position, text) of each string literal, adjacent ones joined."""
    for found in LITERAL.finditer(code):
        joined = "".join(PIECE.findall(found[0]))
        yield found.start(), joined.replace('\\"', '"').replace("\\n", "\n").replace("\\\\", "\\")


def opening(code, at):
    """The code up to the bracket in which the position stands."""
    depth = 0
    for index in range(at - 1, -1, -1):
        if code[index] in ")}":
            depth += 1
        elif code[index] in "({":
            depth -= 1
            if depth < 0:
                return code[:index + 1]
    return ""


def function_at(code, at):
    return [found[1] for found in FUNCTION.finditer(code) if found.start() < at][-1]


def texts_with_values():
    """(file, text) of every shell text that takes values."""
    for path in CODE:
        code = uncommented(path.read_text())
        for at, text in texts(code):
            if re.search(r"%[sd]", text) and not KEY.fullmatch(text) \
                    and not NO_SHELL.search(opening(code, at)):
                yield path.name, text


def rows():
    """(file, function, text) of each row of the table."""
    page = (PROJECT / "docs/injection.md").read_text()
    for line in page.split("\n"):
        found = re.match(r"\| `(\w+\.cpp)`: `(\w+)` \| `(.*?)` \| ", line)
        if found:
            yield found[1], found[2], found[3].replace("\\|", "|")


def calls():
    """(file, function) of each call of shell_print()."""
    for path in CODE:
        code = uncommented(path.read_text())
        for found in re.finditer(r"\bshell_print\(", code):
            yield path.name, function_at(code, found.start())


def test_the_table_has_every_text_with_values():
    assert Counter(texts_with_values()) == Counter((file, text) for file, _, text in rows())


def test_the_table_has_every_place():
    assert set(calls()) == {(file, function) for file, function, _ in rows()}


def test_what_is_run_is_a_constant_or_was_put_together_for_the_shell():
    """Whatever else is handed to the shell would not be covered by the table."""
    for path in CODE:
        code = uncommented(path.read_text())
        for found in re.finditer(r"\b(shell_run|system_operate|popen)\(\s*(\"|[\w.]+)", code):
            word = found[2]
            if word == '"' or re.fullmatch(r"k[A-Z]\w+|item\.capture", word):
                continue
            function = function_at(code, found.start())
            body = code[code.rindex(f"{function}(", 0, found.start()):found.start()]
            constant = re.search(rf"const char\* {word} = \"", body)
            assert constant or re.search(rf"shell_print\({word},", body), (path.name, found[0])


@pytest.mark.parametrize("sample", [
    'int f() {\n    if (shell_print(out, "new.sh %s", name)) return 1;\n}\n',
    'constexpr LineFile kNew = {"a", "b", 1,\n    "new.sh "\n    "%s"};\n',
])
def test_a_new_text_would_be_seen(sample, tmp_path, monkeypatch):
    file = tmp_path / "new.cpp"
    file.write_text(sample)
    monkeypatch.setattr("test_places.CODE", [file])
    assert list(texts_with_values()) == [("new.cpp", "new.sh %s")]
