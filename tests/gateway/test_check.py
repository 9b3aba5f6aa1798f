"""A case has to fail when anything differs: each row breaks one thing that a passing case says."""

import itertools

import pytest
from cpectl_sim import case, check, places, run

# The program of these cases is the shell, and a script that does a bit of everything.
PASSING = """\
[nvram]   HOSTNAME=office
[mvram]   SECOND=2
[file /tmp/old] gone soon
[file /tmp/mode]
[script-text /usr/bin/probe]
    echo "answer $1"
    nvram set HOSTNAME="$1"
    echo kept >/tmp/kept
    rm /tmp/old
    chmod 600 /tmp/mode
    ln -s /etc/x /tmp/link
    mkdir /tmp/made
    sh -c "/usr/sbin/ui.sh 'a b'" &
    exit 3
[argv]
    -c
    probe home
[stdout]  answer home
[exit]    3
[calls]   shell probe home
[scripts]
    /usr/bin/probe home
    /usr/sbin/ui.sh "a b"
[nvram after]     HOSTNAME=home
[committed after] HOSTNAME=office
[mvram now]
    SECOND=2
    !THIRD
[file /tmp/kept after] kept
[no file /tmp/old]
[file /tmp/mode after mode=600]
[symlink /tmp/link after] /etc/x
[dir /tmp/made after]
[took]    at-most 9
"""


@pytest.fixture(name="failures")
def make_failures(tmp_path, base_dir, monkeypatch):
    """Runs the text of a case on the shell as the program; returns what failed."""
    monkeypatch.setattr(run, "PROGRAM", "/bin/sh")
    numbers = itertools.count()
    return lambda content: check.run_case(
        case.parse(content), tmp_path / f"gateway-{next(numbers)}", places.find(), base_dir)


def test_all_as_expected(failures):
    assert failures(PASSING) == []


@pytest.mark.parametrize("right, wrong, told", [
    ("[stdout]  answer home", "[stdout]  answer", "[stdout]"),
    ("[stdout]  answer home", "[stdout]", "[stdout]"),
    ("[stdout]  answer home", '[stdout-raw] "answer home"', "[stdout-raw]"),
    ("[stdout]  answer home", "[stdout]\n    answer home\n    more", "[stdout]"),
    ('echo "answer $1"', 'printf "answer $1"', "(no newline)"),
    ('echo "answer $1"', 'echo "answer $1"; echo oops >&2', "[stderr]"),
    ("[exit]    3", "[exit]    0", "[exit]"),
    ("[exit]    3", "[exit]    3\n[stderr some]", "[stderr some]: nothing came"),
    ("[exit]    3", "[exit]    3\n[stderr] x", "[stderr]"),
    ("[calls]   shell probe home", "[calls]", "+shell probe home"),
    ("[calls]   shell probe home", "[calls]   shell probe  home", "-shell probe  home"),
    ("[calls]   shell probe home", "[calls]   shell probe home\n   nvram_commit", "-nvram_commit"),
    ('ui.sh "a b"', "ui.sh a b", "[scripts]"),
    ('    /usr/sbin/ui.sh "a b"\n', "", "[scripts]"),
    ("[nvram after]     HOSTNAME=home", "[nvram after]     HOSTNAME=Home", "[nvram after]"),
    ("[nvram after]     HOSTNAME=home", "[nvram after]", "+HOSTNAME=home"),
    ("[nvram after]     HOSTNAME=home", "[nvram now]    HOSTNAME=Home", "[nvram now]"),
    ("[nvram after]     HOSTNAME=home", "[nvram now]    !HOSTNAME", "[nvram now]"),
    ("[committed after] HOSTNAME=office", "[committed after] HOSTNAME=home", "[committed after]"),
    ("    SECOND=2\n    !THIRD", "    !SECOND", "[mvram now]"),
    ("    SECOND=2\n    !THIRD", "    THIRD=3", "[mvram now]"),
    ("[file /tmp/kept after] kept", "[file /tmp/kept after] Kept", "[file /tmp/kept after]"),
    ("[file /tmp/kept after] kept", '[file /tmp/kept after raw] "kept"', "(no newline)"),
    ("[file /tmp/kept after] kept", "", "/tmp/kept was created (5 bytes): no section speaks of"),
    ("[file /tmp/kept after] kept", "[no file /tmp/kept]", "[no file /tmp/kept]: there is a file"),
    ("[no file /tmp/old]", "", "/tmp/old was removed: no section speaks of it"),
    ("[no file /tmp/old]", "[file /tmp/old after] gone soon", "there is no such file"),
    ("[file /tmp/mode after mode=600]", "", "/tmp/mode was changed (mode 600): no section"),
    ("[file /tmp/mode after mode=600]", "[file /tmp/mode after mode=644]", "the mode is 600"),
    ("[symlink /tmp/link after] /etc/x", "[symlink /tmp/link after] /etc/y", "[symlink"),
    ("[symlink /tmp/link after] /etc/x", "", "/tmp/link was created (symlink): no section"),
    ("[dir /tmp/made after]", "[file /tmp/made after]", "there is dir"),
    ("[dir /tmp/made after]", "", "/tmp/made was created (dir): no section"),
    ("[took]    at-most 9", "[took]    at-least 9", "[took] at-least 9: it took 0."),
    ("[took]    at-most 9", "[took]    at-most 0", "[took] at-most 0: it took 0."),
])
def test_each_difference_is_told(failures, right, wrong, told):
    assert right in PASSING
    found = failures(PASSING.replace(right, wrong))
    assert len(found) == 1 and told in found[0]


def test_a_store_that_changed_unmentioned(failures):
    silent = PASSING
    for line in ("[calls]   shell probe home\n", "[nvram after]     HOSTNAME=home\n",
                 "[committed after] HOSTNAME=office\n"):
        silent = silent.replace(line, "")
    found = failures(silent)
    assert len(found) == 1 and found[0].startswith("[nvram] changed, and no section speaks of it")


def test_a_committed_copy_that_changed_unmentioned(failures):
    committing = """\
[nvram] HOSTNAME=office
[argv]
    -c
    nvram set HOSTNAME=home; nvram commit; nvram set HOSTNAME=office
[stdout]
[exit] 0
"""
    found = failures(committing)
    assert [failure.splitlines()[0].split(",")[0] for failure in found] == ["[committed] changed"]
    assert failures(committing + "[nvram now] HOSTNAME=office\n") == []


def test_files_any_silences_them(failures):
    quiet = PASSING.replace("[no file /tmp/old]", "[files any]").replace(
        "[dir /tmp/made after]\n", "")
    assert failures(quiet) == []


def test_a_later_request_is_named(failures):
    found = failures(PASSING + "[argv]\n    -c\n    echo x\n[stdout] y\n[exit] 0\n")
    assert found[0] == "request 2: -c echo x" and "[stdout]" in found[1]


def test_reboot_between_requests(failures):
    assert failures("""\
[nvram]   HOSTNAME=office
[argv]
    -c
    nvram set HOSTNAME=home; nvram get HOSTNAME; touch /tmp/x
[stdout]  home
[nvram now] HOSTNAME=home
[exit]    0
[files any]
[reboot]
[argv]
    -c
    nvram get HOSTNAME; ls /tmp
[stdout]  office
[exit]    0
""") == []
