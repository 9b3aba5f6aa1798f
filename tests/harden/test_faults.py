"""Every command on a gateway on which something is broken: an answer of its own, or silence.

What each command answers to a fault that concerns it is stated by the request cases and by the
model; here each fault meets all commands.
"""

import re

import pytest

import commands
from commands import COMMANDS, FILES
from rig import LONG
from cpectl_sim import base

SCRIPTS = base.STAND_INS
HELD_UP = 3  # seconds that a script takes

# The scripts that a command waits for, by their fixed texts; all others run in the background.
WAITS = {
    "setAdmPass": ["/sbin/cpecryptpw", "/usr/sbin/webserv.sh"],
    "wanInfoSet": ["/usr/sbin/ui.sh"],
    "ipsecDelTun": ["/usr/sbin/ipsec.sh", "/usr/bin/dd_flash"],
    "ipsecTunStaGet": ["/usr/local/sbin/ipsec"],
    "pptpdDelUser": ["/usr/sbin/pptp.sh", "/usr/bin/dd_flash"],
}


def for_each_script(steps):
    return "".join(f"[script {path}]\n    {steps}\n" for path in SCRIPTS)


def missing(paths):
    return "".join(f"[absent {path}]\n" for path in paths)


def folders_as_files(paths):
    return "".join(f"mv {path} {path}.away; mkdir {path}\n" for path in paths)


def full(folder):
    """A small disk in the place of a folder, with what was in it and no room for more."""
    return f"""
        cp -a {folder} /opt/kept
        mount -t tmpfs -o size=64k none {folder} || exit 77
        cp -a /opt/kept/. {folder}/
        dd if=/dev/zero of={folder}/full bs=1k count=200 2>/dev/null
    """


# name: (sections of the world, shell script to run before, what is given to each request)
FAULTS = {
    "scripts missing": (missing(SCRIPTS), "", {}),
    "scripts failing": (for_each_script("exit 1"), "", {}),
    "scripts killed": ("".join(f"[script-text {path}]\n    kill -9 $$\n" for path in SCRIPTS), "",
                       {}),
    "scripts print a megabyte": (for_each_script("print {{x*1000000}}"), "", {}),
    "the nvram tool prints a megabyte": ("[script /usr/sbin/nvram]\n"
                                         "    print LAN_IF_MAC={{x*1000000}}\n", "", {}),
    "no shell": ("[absent /bin/sh]", "", {}),
    "no tools": (missing(["/bin/cat", "/bin/grep", "/bin/sed", "/usr/bin/cut", "/bin/mv",
                          "/usr/bin/awk", "/usr/bin/md5sum", "/usr/bin/curl", "/usr/sbin/nvram"]),
                 "", {}),
    **{f"library {name} fails": (f"[library {name} fails]", "", {})
       for name in ("nvram", "mvram", "netlink", "hostsort", "wum")},
    **{f"library {name} is missing": (f"[library {name} absent]", "", {})
       for name in ("nvram", "mvram", "netlink", "hostsort", "wum")},
    "files missing": ("", "rm -f " + " ".join(FILES), {}),
    "folders in the place of files": ("", folders_as_files(
        [*(path for path in FILES if not path.endswith("ram")),
         "/sys/module/fc/parameters/active_host", "/etc/hosts"]), {}),
    "files that may not be opened": ("", "chmod 0 " + " ".join(FILES), {"handicap": "rights"}),
    "folders that may not be written": ("", "chmod 0555 /tmp /disk/conf /etc /var/run/cpectl",
                                        {"handicap": "rights"}),
    "an empty /tmp that is read-only": ("", "umount /tmp || exit 77", {}),
    "no /disk/conf": ("", "mv /disk/conf /disk/away", {}),
    "no folder of the stores": ("", "mv /var/run /var/away", {}),
    "/tmp full": ("", full("/tmp"), {}),
    "/disk full": ("", full("/disk/conf"), {}),
    "/var/run full": ("", full("/var/run"), {}),
    "nothing of /proc": (missing(["/proc/uptime", "/proc/stat", "/proc/meminfo"]), "", {}),
    "output closed": ("", "", {"output": "closed"}),
    "output full": ("", "", {"output": "full"}),
    "nobody reads the output": ("", "", {"output": "broken-pipe"}),
    "children end unseen": ("", "", {"handicap": "children"}),
    **{f"{number} files open at most": ("", "", {"handicap": str(number)})
       for number in (4, 5, 6, 7)},
}

# These commands leave their script's output where the answer goes, by their fixed texts.
MIXED = ("pushfw", "checkOta")
WITHOUT_OUTPUT = ("output closed", "output full", "nobody reads the output")


def check(fault, command, answer):
    """An answer of the command, or the documented silence."""
    assert answer.ending in ("exit 0", "exit 255"), (command, answer)
    assert b"Sanitizer" not in answer.stderr, (command, answer.stderr)
    out = answer.stdout
    if command in MIXED:
        out = re.sub(rb"^x+\n", b"", out, flags=re.MULTILINE)
        out = re.sub(rb"x{1000,}\n?", b"", out)
    if fault in WITHOUT_OUTPUT:
        assert (answer.ending, out) == ("exit 255", b""), (command, answer)
    elif answer.ending == "exit 0":
        assert commands.is_answer(command, out), (command, answer)
    else:
        assert not out or commands.LOCALCFG.fullmatch(out), (command, answer)


@pytest.mark.parametrize("fault", FAULTS)
def test_every_command_survives(gateway, fault, figure):
    sections, first, given = FAULTS[fault]
    commands.prepare(gateway, sections)
    requests = [commands.request(command) for command in COMMANDS]
    for request in requests:
        vars(request).update(given)
        if first:  # the files stay as the script leaves them
            request.files = {}
    try:
        answers = gateway.run(requests, first=first and "cd /\n" + first)
    except RuntimeError as error:
        if "77" in str(error):
            pytest.skip("no disk can be mounted here")
        raise
    for command, answer in zip(COMMANDS, answers):
        check(fault, command, answer)
    silent = [command for command, answer in zip(COMMANDS, answers) if not answer.stdout]
    if fault in WITHOUT_OUTPUT:
        figure(f"{fault}: {len(answers)} commands, all silent")
        return
    figure(f"{fault}: {len(answers)} commands; silent: {' '.join(silent) or 'none'}")
    assert len(silent) <= 8, silent


@pytest.mark.parametrize("command", ["pushfw", "reboot", "upGrade", "ipsecOpen", "ipsecAddTun",
                                     "ipsecTunReboot", "pptpdDelAllUser", "pptpcShutdown",
                                     "openIntranetProxy"] if not LONG else
                         [command for command in COMMANDS if command != "checkOta"])
def test_what_never_ends_in_the_background_holds_nobody_up(gateway, command):
    slow = [path for path in SCRIPTS if path not in WAITS.get(command, [])]
    sections = "".join(f"[script {path}]\n    sleep {HELD_UP}\n" for path in slow)
    commands.prepare(gateway, sections + "[script /usr/bin/curl]\n    sleep 3\n")
    for _ in range(5):  # was it the script, or the machine?
        answer, = gateway.run([commands.request(command)])
        assert commands.is_answer(command, answer.stdout) or command == "localcfgUpdate"
        if answer.seconds < HELD_UP:
            return
    pytest.fail(f"it took {answer.seconds} s each time, its scripts {HELD_UP} s")


@pytest.mark.parametrize("command, path",
                         [(command, path) for command in WAITS for path in WAITS[command]])
def test_what_a_command_waits_for_is_known(gateway, command, path):
    """The list of the manual: these hold the answer up as long as they take."""
    words = " whack --status" if path == "/usr/local/sbin/ipsec" else ""
    commands.prepare(gateway, f"[script {path}{words}]\n    sleep 0.6\n")
    answer, = gateway.run([commands.request(command)])
    assert answer.seconds >= 0.6
