"""The check of the built program: its size against the budget, what it needs."""
import dataclasses
import pathlib
import subprocess

import pytest

import program

RELEASE = program.PROGRAMS[program.HERE]
SOURCE = "extern int cJSON_GetArraySize(void *); int main(void) { return cJSON_GetArraySize(0); }"


@dataclasses.dataclass
class Made:
    path: pathlib.Path
    nm: str = "nm"


@pytest.fixture
def made(tmp_path):
    def make(source, *words, compiler="gcc"):
        path = tmp_path / "program"
        subprocess.run([compiler, "-x", "c++" if compiler == "g++" else "c", "-", "-o", path,
                        *words], input=source, text=True, check=True)
        return path
    return make


def test_the_release_is_within_its_budget_and_needs_libc_and_cjson_alone(capsys):
    assert not program.check(program.HERE), capsys.readouterr().out


def test_each_architecture_has_a_budget():
    assert set(program.budgets()) == set(program.PROGRAMS) | {"x86-64"}


@pytest.mark.parametrize("size, complains", [(100, False), (105, False), (106, True)])
def test_five_percent_more_than_the_budget_are_allowed(size, complains):
    assert bool(program.size_complaint(size, 100)) == complains


def test_no_budget_is_a_complaint():
    assert program.size_complaint(100, None)


def test_a_further_library_is_named(made):
    libraries = "-Wl,--no-as-needed", "-lcjson"
    assert program.libraries_complaint(made(SOURCE, *libraries), RELEASE.needs) is None
    more = made(SOURCE, *libraries, "-lm")
    assert program.libraries_complaint(more, RELEASE.needs) == "it needs libm.so.6"


def test_a_part_of_the_cxx_library_is_named(made):
    plain = made("int main() { return 0; }", compiler="g++")
    assert program.runtime_complaint(plain, RELEASE.nm) is None
    throws = made("int main(int argc, char**) { if (argc > 1) throw 1; }", compiler="g++")
    assert "__cxa_throw" in program.runtime_complaint(throws, RELEASE.nm)
    allocates = made("int main(int argc, char**) { return *new int(argc); }", compiler="g++")
    assert "_Znwm" in program.runtime_complaint(allocates, RELEASE.nm)


def test_the_largest_symbols_come_first():
    sizes = [size for size, _, _ in program.largest_symbols(RELEASE)]
    assert len(sizes) == program.LARGEST and sizes == sorted(sizes, reverse=True) and sizes[-1] > 0
