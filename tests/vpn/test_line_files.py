"""The tunnel and user files under stress: long lines, unwritable files, full disks, two at once."""

import json
import os

import pytest

import beside

TUNNELS = "/disk/conf/ipsec.cfg"
USERS = "/disk/conf/pptpuser.cfg"


def add(kind, line):
    return ("ipsecAddTun", json.dumps({"tunCfg": line})) if kind == "tunnel" else \
        ("pptpdAddUser", json.dumps({"userCfg": line}))


def delete(kind, name):
    return ("ipsecDelTun", json.dumps({"tunName": name})) if kind == "tunnel" else \
        ("pptpdDelUser", json.dumps({"userName": name}))


needs_root = pytest.mark.skipif(
    os.geteuid() != 0, reason="only root can take rights away in the gateway, or remount a disk")
both_files = pytest.mark.parametrize("kind, path", [("tunnel", TUNNELS), ("user", USERS)])


def stat_of(outcome):
    return json.loads(outcome.output("stdout"))["stat"]


@both_files
@pytest.mark.parametrize("length", [1022, 1023, 1024, 4093, 4094, 4095, 4096, 8190, 20000])
def test_a_long_line_is_kept_or_deleted_whole(office, kind, path, length):
    """Whatever the buffers are in which lines are read."""
    long = b"long a " + b"x" * (length - 9) + b" z"
    assert len(long) == length
    office.write(path, b"first 1\n" + long + b"\nlast 2\n")
    assert stat_of(office.request(*delete(kind, "first"))) == "ok"
    assert office.read(path) == long + b"\nlast 2\n"
    assert stat_of(office.request(*delete(kind, "last"))) == "ok"
    assert office.read(path) == long + b"\n"
    assert stat_of(office.request(*delete(kind, "long"))) == "ok"
    assert office.read(path) == b""


@both_files
@pytest.mark.parametrize("length", [4093, 4094, 4095, 4096, 9000])
def test_a_long_last_line_without_its_end(office, kind, path, length):
    long = b"long " + b"x" * (length - 5)
    office.write(path, b"first 1\n" + long)
    assert stat_of(office.request(*delete(kind, "first"))) == "ok"
    assert office.read(path) == long


def without_rights(*command):
    """A program's start as a root that may not read and write everything."""
    return ("PYTHONHOME=/usr exec setpriv --inh-caps -dac_override,-dac_read_search "
            "/opt/python3 -B -c 'import ctypes, os, sys\n"
            "for right in (1, 2): ctypes.CDLL(None).prctl(24, right)\n"
            "os.execv(sys.argv[1], sys.argv[1:])' /usr/sbin/cpectl \"$@\"", *command)


@needs_root
@both_files
@pytest.mark.parametrize("mode, added", [(0o000, "err"), (0o200, "err"), (0o444, "ok")],
                         ids=["nothing", "write-only", "read-only"])
def test_a_file_that_may_not_be_opened(office, kind, path, mode, added):
    """A name cannot be known to be free in a file that cannot be read: no line, no script. Where it
    only cannot be written, nobody notices."""
    office.bring_python()
    office.write(path, "home 1\n")
    (office.root / path[1:]).chmod(mode)
    outcome = office.script(*without_rights(*add(kind, "office 1")))
    assert stat_of(outcome) == added
    assert len(beside.shells(outcome)) == (added == "ok")
    (office.root / path[1:]).chmod(0o600)
    assert office.read(path) == b"home 1\n"


@needs_root
@both_files
def test_a_file_that_may_not_be_read_is_not_deleted_from(office, kind, path):
    office.bring_python()
    office.write(path, "home 1\n")
    (office.root / path[1:]).chmod(0o200)
    outcome = office.script(*without_rights(*delete(kind, "home")))
    assert stat_of(outcome) == "err"
    assert beside.shells(outcome) == []
    (office.root / path[1:]).chmod(0o600)
    assert office.read(path) == b"home 1\n"


def on_a_disk(path, size, prepare, *command):
    """A script that runs a command with a small disk of its own below the directory of `path`, and
    leaves what is there in /opt/after."""
    folder = path.rpartition("/")[0]
    return f"""
        if ! mount -t tmpfs -o size={size} none {folder} 2>/opt/refused; then exit 77; fi
        rm /opt/refused
        [ -e /opt/before ] && cp /opt/before {path}
        {prepare}
        /usr/sbin/cpectl "$@"
        status=$?
        [ -e {path} ] && cat {path} >/opt/after
        ls -a {folder} >/opt/listing
        exit $status
    """, *command


def run_on_a_disk(office, *script):
    outcome = office.script(*script)
    if (office.root / "opt/refused").exists():
        pytest.skip("no disk can be mounted: " + office.read("/opt/refused").decode().strip())
    return outcome


FILL = "dd if=/dev/zero of=%s/full bs=1k count=1000 2>/dev/null"


@both_files
def test_a_line_for_a_full_disk(office, kind, path):
    """The line is not there, or not half of it; the answer is as ever, since nobody looks."""
    before = b"home 1\n" + b"".join(b"tun%04d %s\n" % (i, b"x" * 53) for i in range(65))
    assert 4000 < len(before) < 4096  # the line does not fit into the file's last page
    office.write("/opt/before", before)
    outcome = run_on_a_disk(office, *on_a_disk(
        path, "16k", FILL % "/disk/conf", *add(kind, "office " + "y" * 800)))
    assert stat_of(outcome) == "ok"
    assert office.read("/opt/after") == before


@both_files
def test_a_deletion_with_a_full_disk(office, kind, path):
    """The file gets shorter, so there is room for what is left of it."""
    office.write("/opt/before", b"home 1\nshop 2\n" * 200)
    outcome = run_on_a_disk(office, *on_a_disk(
        path, "16k", FILL % "/disk/conf", *delete(kind, "home")))
    assert stat_of(outcome) == "ok"
    assert office.read("/opt/after") == b"shop 2\n" * 200
    assert office.read("/opt/listing").split() == [b".", b"..", b"full", path.encode()[11:]]


@both_files
def test_a_deletion_with_no_room_for_the_work_file(office, kind, path):
    """Half a copy never takes the place of the file: nothing is removed, and that is told."""
    before = b"home 1\n" + b"shop 2\n" * 3000
    office.write(path, before)
    outcome = run_on_a_disk(office, *on_a_disk(
        "/tmp/x", "16k", FILL % "/tmp", *delete(kind, "home")))
    assert stat_of(outcome) == "err"
    assert office.read(path) == before
    assert b"cpectl_tmp_write_file" not in office.read("/opt/listing")
    assert not [text for text in beside.shells(outcome) if text.startswith("mv")]


@needs_root
@both_files
def test_a_disk_that_is_read_only(office, kind, path):
    """Nothing changes; the answers are as ever, since nobody looks at the result of moving."""
    office.write("/opt/before", b"home 1\nshop 2\n")
    read_only = "mount -o remount,bind,ro /disk/conf"
    for command in (add(kind, "office 1"), delete(kind, "home")):
        outcome = run_on_a_disk(office, *on_a_disk(path, "16k", read_only, *command))
        assert stat_of(outcome) == "ok"
        assert office.read("/opt/after") == b"home 1\nshop 2\n"


# Adds lines one after the other and deletes each second one, for some seconds, and notes what was
# answered with "ok". A request that meets the other's edit may be refused; then nothing is changed.
WORKER = """
prefix=$1 add=$2 line=$3 delete=$4 name=$5
request() {
    mark=$1
    shift
    case $(/usr/sbin/cpectl "$@") in
    *'"stat":"ok"}') echo "$mark$prefix$i" >>/opt/done.$prefix ;;
    *'"stat":"err"}') echo "$mark$prefix$i" >>/opt/refused.$prefix ;;
    *) echo "no answer to $*" ;;
    esac
}
i=1000
end=$(($(date +%s) + 3))
while [ $(date +%s) -lt $end ]; do
    i=$((i + 1))
    request + $add "{\\"$line\\":\\"$prefix$i $PADDING $prefix$i\\"}"
    [ $((i % 2)) = 1 ] || request - $delete "{\\"$name\\":\\"$prefix$i\\"}"
done
"""

TUNNEL_WORK = "ipsecAddTun tunCfg ipsecDelTun tunName"
USER_WORK = "pptpdAddUser userCfg pptpdDelUser userName"


@pytest.mark.parametrize("first, second", [(TUNNEL_WORK, TUNNEL_WORK), (TUNNEL_WORK, USER_WORK)],
                         ids=["on one file", "on both files"])
def test_two_at_once_lose_and_tear_nothing(office, first, second):
    padding = "y" * 300
    kept = [f"keep{i:03} {'x' * (i * 7 % 900)} end" for i in range(60)]
    start = "".join(line + "\n" for line in kept)
    office.write(TUNNELS, start)
    office.write(USERS, start)
    office.write("/opt/worker", WORKER)
    outcome = office.script(f"""
        export PADDING={padding}
        sh /opt/worker a {first} & sh /opt/worker b {second} & wait
    """)
    assert outcome.output("stdout") == ""
    assert outcome.output("stderr") == ""
    there = {path: office.read(path).decode().splitlines() for path in (TUNNELS, USERS)}
    assert there[TUNNELS][:60] == there[USERS][:60] == kept

    path_of = {"a": TUNNELS, "b": USERS if second == USER_WORK else TUNNELS}
    expected = {TUNNELS: [], USERS: []}
    for prefix, path in path_of.items():
        done = office.read(f"/opt/done.{prefix}").decode().split()
        assert len(done) >= 6  # something was done
        names = [word[1:] for word in done if word[0] == "+" and "-" + word[1:] not in done]
        expected[path] += [f"{name} {padding} {name}" for name in names]
    for path in (TUNNELS, USERS):
        assert sorted(there[path][60:]) == sorted(expected[path])
