"""What `cmake --install` puts where, and that each Debian package claims its part of it."""
import fnmatch
import re

import pytest
from conftest import BUILD, ROOT, dynamic, files_of, install

PLATFORM = ("hostsort", "mvram", "netlink", "nvram", "wum")
PACKAGES = ("cpectl", "cpectl-sim", "libcpectl-platform", "cpectl-doc")


@pytest.fixture(scope="module")
def tree(tmp_path_factory):
    if not (BUILD / "release/cmake_install.cmake").exists():
        pytest.exit("there is no build/release: build first", 2)
    return install(BUILD / "release", tmp_path_factory.mktemp("tree"), "/usr")


def platform_folder(tree):
    folders = {path.parent for path in tree.glob("usr/lib/**/cpectl/libnvram.so")}
    assert len(folders) == 1
    return folders.pop()


def test_programs_and_headers(tree):
    listed = files_of(tree)
    for path in ("/usr/sbin/cpectl", "/usr/sbin/cpectl-platform-check", "/usr/bin/nvram",
                 "/usr/bin/cpectl-sim", "/usr/share/bash-completion/completions/cpectl",
                 "/usr/share/bash-completion/completions/cpectl-sim",
                 "/usr/share/man/man8/cpectl.8", "/usr/share/man/man8/cpectl-platform-check.8",
                 "/usr/share/man/man1/cpectl-sim.1", "/usr/share/man/man1/nvram.1",
                 "/usr/share/man/man5/ipsec.cfg.5"):
        assert path in listed
    headers = {path.name for path in (ROOT / "include").glob("*.h")}
    assert {path.name for path in (tree / "usr/include/cpectl").iterdir()} == headers


def test_platform_libraries_are_by_themselves(tree):
    folder = platform_folder(tree)
    assert {path.name for path in folder.glob("*.so")} == {f"lib{name}.so" for name in PLATFORM}
    assert not [path for path in files_of(tree)
                if path.endswith(".so") and "/cpectl/" not in path and "/cpectl-sim/" not in path]


def test_the_gateway_finds_its_parts(tree):
    """The layout of gateway/cpectl_sim/places.py."""
    home = tree / "usr/lib/cpectl-sim"
    for name in ("gateway-init", "gateway-sh", "recorder", "office", "factory/world",
                 "scenarios/busy-office", "cpectl_sim/places.py", "platform/libwum.so",
                 "platform/nvram", *(f"recording/lib{name}.so" for name in PLATFORM)):
        assert (home / name).exists(), name
    assert (tree / "usr/bin/cpectl-sim").resolve() == (home / "cpectl-sim").resolve()
    assert (home / "platform/nvram").resolve() == (tree / "usr/bin/nvram").resolve()
    links = [path for path in tree.rglob("*") if path.is_symlink()]
    assert links and not [path for path in links if path.readlink().is_absolute()]
    assert not list(tree.rglob("__pycache__"))


def test_nothing_needs_the_c_plus_plus_library(tree):
    shipped = [tree / "usr/sbin/cpectl", tree / "usr/sbin/cpectl-platform-check",
               tree / "usr/bin/nvram", *platform_folder(tree).glob("*.so")]
    for path in shipped:
        assert not [name for name in dynamic(path, "NEEDED") if "stdc++" in name or "gcc" in name]


def test_the_program_needs_little(tree):
    assert dynamic(tree / "usr/sbin/cpectl", "NEEDED") == ["libcjson.so.1", "libc.so.6"]
    assert dynamic(tree / "usr/sbin/cpectl-platform-check", "NEEDED") == ["libc.so.6"]


def test_installed_texts_link_to_what_is_there(tree):
    """But for manual pages, which man finds."""
    texts = sorted((tree / "usr/share/doc/cpectl").rglob("*.md"))
    assert {"integrators.md", "FORMAT.md", "MONITORING.md"} <= {path.name for path in texts}
    lost = [f"{path.name}: {target}" for path in texts
            for target in re.findall(r"\]\(([^)#:]+)\)", path.read_text("utf-8"))
            if not re.search(r"\.[158]$", target) and not (path.parent / target).exists()]
    assert lost == []


def test_debian_packages_claim_each_file_once(tree):
    claims = {name: (ROOT / f"debian/{name}.install").read_text().split() for name in PACKAGES}
    for path in files_of(tree):
        owners = [name for name in PACKAGES for pattern in claims[name]
                  if fnmatch.fnmatchcase(path[1:], pattern.replace("usr/lib/*/cpectl",
                                                                   "usr/lib*/cpectl"))
                  or fnmatch.fnmatchcase(path[1:], pattern.replace("usr/lib/*/cpectl",
                                                                   "usr/lib*/cpectl") + "/*")]
        assert len(owners) == 1, f"{path}: {owners}"
