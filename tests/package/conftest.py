"""What the tests of the packages share: the installed tree of a build, and dynamic sections."""
import os
import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BUILD = ROOT / "build"


def pytest_collection_modifyitems(items):
    if os.environ.get("CPECTL_SLOW_TESTS"):
        return
    for item in items:
        if item.get_closest_marker("slow"):
            item.add_marker(pytest.mark.skip(reason="slow: only with CPECTL_SLOW_TESTS=1"))


def run(*command, **options):
    """Runs a command and returns what it printed; its standard error is in the failure."""
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True,
                          check=False, **options)
    assert done.returncode == 0, f"{command}:\n{done.stdout}{done.stderr}"
    return done.stdout


def files_of(tree):
    """All files and links of a tree as paths from its root on."""
    return sorted(f"/{path.relative_to(tree)}" for path in tree.rglob("*")
                  if path.is_symlink() or not path.is_dir())


def dynamic(path, kind):
    """The texts of one kind of a program's or library's dynamic section: NEEDED, RUNPATH, RPATH."""
    listing = run("readelf", "-d", "-W", path)
    return re.findall(rf"\({kind}\).*\[(.*)\]", listing)


def install(build, tree, prefix):
    run("cmake", "--install", build, "--prefix", prefix,
        env={**os.environ, "DESTDIR": str(tree)})
    return tree
