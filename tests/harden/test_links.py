"""What others lay in /tmp under the names that the program uses: nothing is written through it."""

import pytest

import commands

VICTIM = "/tmp/victim"
PRECIOUS = b"precious\n"

# The fixed names, and the commands that write under them.
NAMES = [
    ("/tmp/password.tmp", "setAdmPass"),
    ("/tmp/pushfile", "checkOta"),
    ("/tmp/ipsec_stat", "ipsecTunStaGet"),
    ("/tmp/ipsec_state_tmp", "ipsecTunStaGet"),
    ("/tmp/ipsec_eroute_tmp", "ipsecTunStaGet"),
    ("/tmp/cpectl_tmp_write_file", "ipsecDelTun"),
    ("/tmp/cpectl_tmp_write_file", "pptpdDelUser"),
]
# Those that the program itself opens, not the shell.
OPENED = [(name, command) for name, command in NAMES
          if name in ("/tmp/pushfile", "/tmp/cpectl_tmp_write_file")]

LAID = {
    "a link": "/bin/busybox ln -s {victim} {name}",
    "a link to nothing": "/bin/busybox ln -s /tmp/nothing {name}",
    "a second name": "/bin/busybox ln {victim} {name}",
    "a pipe": "/bin/busybox mkfifo {name}",
}


def ask(gateway, name, command, laid):
    """The request on a gateway where something is laid under a name, and where it ends in time."""
    commands.prepare(gateway)
    request = commands.request(command, {VICTIM: PRECIOUS, "/tmp/nothing": None})
    request.shown = [VICTIM, "/tmp/nothing", *commands.FILES]
    first = f"/bin/busybox rm -f {name}\necho precious >{VICTIM}\n" + \
        LAID[laid].format(victim=VICTIM, name=name)
    answer, = gateway.run([request], first=first)
    assert answer.ending == ("exit 255" if command == "checkOta" else "exit 0"), answer
    return answer


@pytest.mark.parametrize("laid, name, command",
                         [(laid, *row) for laid in LAID
                          for row in (NAMES if "link" in laid else OPENED)])
def test_nothing_is_written_through_what_others_lay(gateway, laid, name, command):
    answer = ask(gateway, name, command, laid)
    assert answer.shown[VICTIM] == PRECIOUS
    assert answer.shown["/tmp/nothing"] is None
    for path in ("/disk/conf/ipsec.cfg", "/disk/conf/pptpuser.cfg"):
        assert answer.shown[path] == commands.FILES[path]
    if command.startswith(("ipsecDel", "pptpdDel")):
        assert b'"stat":"err"' in answer.stdout


def test_without_it_they_do_their_work(gateway):
    """So that the tests above show something."""
    commands.prepare(gateway)
    request = commands.request("ipsecDelTun")
    request.shown = ["/disk/conf/ipsec.cfg"]
    answer, = gateway.run([request])
    assert b'"stat":"ok"' in answer.stdout
    assert answer.shown["/disk/conf/ipsec.cfg"] != commands.FILES["/disk/conf/ipsec.cfg"]
