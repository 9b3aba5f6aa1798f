"""The rules of the house: each is broken once here, and has to be noticed at that line."""
import pathlib
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
HEADER = "// What it is for.\n#pragma once\n"


def rules(folder):
    return subprocess.run([ROOT / "tools/dev/rules.py", folder],
                          capture_output=True, text=True, check=False)


def broken(folder, name, text):
    (folder / name).parent.mkdir(parents=True, exist_ok=True)
    (folder / name).write_text(text)
    return rules(folder).stdout


@pytest.mark.parametrize("name, code, why", [
    ("src/tools/a.cpp", "strcpy(a, b);", "text calls"),
    ("src/tools/a.cpp", "std::sprintf(a, b);", "text calls"),
    ("substitutes/store/a.cpp", "strtok (a, b);", "text calls"),
    ("gateway/native/a.c", "strncpy(a, b, 3);", "text calls"),
    ("src/platform/a.cpp", "std::system(text);", "the shell is reached"),
    ("src/main/a.cpp", "FILE* f = popen(text);", "the shell is reached"),
    ("src/log/a.cpp", "execve(a, b, c);", "the shell is reached"),
    ("src/log/a.cpp", "class Log {};", "no classes"),
    ("substitutes/a.cpp", "struct A { private: int b; };", "no classes"),
    ("src/log/a.cpp", "std::string text;", "the C++ run-time library"),
    ("src/log/a.cpp", "int* a = new int;", "the C++ run-time library"),
    ("src/log/a.cpp", "throw 1;", "the C++ run-time library"),
    ("include/a.h", "#pragma once\nstruct A { unsigned long b; };", "long has another width"),
    ("src/log/a.cpp", "long a = b();", "long has another width"),
    ("src/log/a.cpp", 'std::printf("%08lx", a);', "a format of <cinttypes>"),
    ("substitutes/a.h", "#pragma once\nusing namespace std;", "no namespace"),
    ("src/log/a.cpp", "int a; ", "blanks at the end"),
    ("src/log/a.cpp", "\tint a;", "a tab"),
    ("tools/a.sh", "x" * 101, "100 characters"),
])
def test_a_broken_rule_is_told_with_its_line(tmp_path, name, code, why):
    mark = "#" if name.endswith(".sh") else "//"
    line = code.count("\n") + 2
    told = broken(tmp_path, name, f"{mark} What it is for.\n{code}\n")
    assert f"{name}:{line}: " in told
    assert why in told
    assert rules(tmp_path).returncode == 1


@pytest.mark.parametrize("name, text, why", [
    ("src/log/a.h", "// What it is for.\nint a;\n", "#pragma once"),
    ("src/log/a.h", "#pragma once\n", "what it is for"),
    ("src/log/a.cpp", "int a;\n", "what it is for"),
    ("tools/a.py", "import os\n", "what it is for"),
    ("src/log/a.cpp", "// What it is for.\nint a;", "one newline"),
    ("src/log/a.cpp", "// What it is for.\nint a;\n\n", "one newline"),
    ("src/platform/handlers.h", HEADER + "\ncJSON* cpectl_a(int argc, const cJSON* args);\n",
     "each handler's declaration"),
])
def test_a_file_that_breaks_a_rule(tmp_path, name, text, why):
    assert why in broken(tmp_path, name, text)


def test_another_header_first(tmp_path):
    broken(tmp_path, "src/log/a.h", HEADER)
    text = '// What it is for.\n#include <cstdio>\n#include "log/a.h"\n'
    assert "its own header first" in broken(tmp_path, "src/log/a.cpp", text)


@pytest.mark.parametrize("name, code", [
    ("src/tools/a.cpp", 'std::system(text);\n// As strcpy(a, b) does.\n/* class A\n   throw */'),
    ("src/log/a.cpp", 'enum class Kind { a };\nconst char* a = "class b; throw strcpy(";'),
    ("src/log/a.cpp", "std::string_view a;\nint my_system(int);\na.system(b);\nint newer;"),
    ("tests/unit/a.cpp", "std::string text;"),
    ("src/platform/handlers.h", "#pragma once\n// Names\ncJSON* cpectl_a(int argc);  // Kept: a"
                                "\ncJSON* cpectl_b(int argc);"),
])
def test_what_is_allowed_stays_unsaid(tmp_path, name, code):
    assert broken(tmp_path, name, f"// What it is for.\n{code}\n") == ""
    assert rules(tmp_path).returncode == 0


def test_what_is_built_is_not_looked_at(tmp_path):
    assert broken(tmp_path, "build/x/src/a.cpp", "strcpy(a, b);") == ""
