"""Values that are commands, expansions and quotes to a shell: each reaches its script as one word.

Every place at which a value meets a shell text, as docs/injection.md lists them, is given every
text of payloads.py. In the emulated gateway all that runs is recorded, so that a word that differs
shows, and so does anything that runs besides.
"""

import re
from dataclasses import dataclass
from hashlib import md5

import pytest

import payloads
import rig
from rig import Request, json_argument

TUNNELS = "/disk/conf/ipsec.cfg"
USERS = "/disk/conf/pptpuser.cfg"
STORE = "/var/run/cpectl/nvram"
HARMLESS = re.compile(rb"[A-Za-z0-9_@%+=:,./-]*")
IDENTITY = "/etc/cpectl.cfg"
LINE = b"office 1 2 3\n"

# Runs the program, then shows the file that it wrote.
WRAPPER = f'/usr/sbin/cpectl "$@"; cat {IDENTITY}\n'


def in_single_quotes(value):
    return value.replace(b"'", b"'\\''")


def word(value):
    """A value as it stands in a command text."""
    return value if HARMLESS.fullmatch(value) else b"'" + in_single_quotes(value) + b"'"


def head(value, stop, limit):
    return value[:limit].split(stop, 1)[0]


@dataclass
class Expected:
    answer: bytes   # the whole standard output
    scripts: list   # words of each script that runs
    shells: int     # how many shell texts


def escaped(value):
    """A value as it stands in the file of a store."""
    return value.replace(b"\\", b"\\\\").replace(b"\n", b"\\n").replace(b"\r", b"\\r")


def longest(make, value):
    """The value, cut as far as the request's text needs it."""
    while len(make(value)) > 1023:
        value = value[:-1]
    return value


# ---- The places, a class each: the request for a value, and what has to come of it

class Password:
    names = {"/tmp/password.tmp"}

    def arguments(self, value):
        return ["setAdmPass", json_argument({"admPass": value})]

    def request(self, value):
        return Request(self.arguments(value))

    def expected(self, value):
        fits = len(b"/sbin/cpecryptpw  | cut -b 5- >/tmp/password.tmp" + word(value)) < 256
        after = [[b"/usr/sbin/webserv.sh", b"userinfo"]]
        before = [[b"/sbin/cpecryptpw", value]] if fits else []
        return Expected(b'{"fun":"setAdmPass","stat":"ok"}\n', before + after, 1 + fits)


class NewLine:
    """The first word of a line that is added to a line file."""

    def __init__(self, command, member, path, script):
        self.command, self.member, self.path, self.script = command, member, path, script
        self.names = {path}

    def arguments(self, value):
        return [self.command, json_argument({self.member: value})]

    def request(self, value):
        return Request(self.arguments(value), {self.path: None})

    def expected(self, value):
        name = head(value, b" ", 127)
        called = b" ".join(self.script) + b" " + word(name) + b" >/dev/null 2>&1 &"
        stat = b"ok" if len(called) < 256 else b"err"
        runs = [[*self.script, name] if name else self.script] if stat == b"ok" else []
        return Expected(b'{"fun":"%s","stat":"%s"}\n' % (self.command.encode(), stat), runs,
                        len(runs))


class TunnelAction:
    names = set()

    def __init__(self, command, action):
        self.command, self.action = command, action

    def arguments(self, value):
        return [self.command, json_argument({"tunName": value})]

    def request(self, value):
        return Request(self.arguments(value))

    def expected(self, value):
        called = b"/usr/sbin/ipsec.sh set %s %s >/dev/null 2>&1 &" % (word(value), self.action)
        fun = self.command.encode()
        if len(called) >= 256:
            return Expected(b'{"fun":"%s","stat":"ok","cbk":{"stat":"err","retInfo":"tunName is '
                            b'too long"},"stat":"ok"}\n' % fun, [], 0)
        return Expected(b'{"fun":"%s","cbk":{"stat":"ok","retInfo":""},"stat":"ok"}\n' % fun,
                        [[b"/usr/sbin/ipsec.sh", b"set", value, self.action]], 1)


class PostUrl:
    """The only place that runs a program of others, curl; here the recorder stands for it."""

    def __init__(self, command, path):
        self.command, self.path = command, path
        self.names = {path}

    def arguments(self, value):
        return [self.command, json_argument({"postUrl": value})]

    def request(self, value):
        return Request(self.arguments(value), {self.path: LINE})

    def expected(self, value):
        name = self.path.rpartition("/")[2].encode()
        if len(value) >= 512:
            return Expected(b'{"fun":"%s","stat":"err"}\n' % self.command.encode(), [], 0)
        upload = b"file=@" + self.path.encode()
        called = b'curl %s -F "%s" >/dev/null 2>&1 &' % (word(value), upload)
        runs = len(called) < 1024 and not value.startswith(b"-")
        return Expected(
            b'{"fun":"%s","stat":"ok","cbk":{"name":"%s","md5":'
            b'"%s"}}\n' % (self.command.encode(), name, md5(LINE).hexdigest().encode()),
            [[b"/usr/bin/curl", value, b"-F", upload]] if runs else [], 1 + runs)


class Identity:
    """A value that localcfgUpdate captures from somewhere and appends to the identity file."""

    names = {IDENTITY, "/etc/router.ver"}
    labels = (b"CP_SW_VERSION", b"CP_SW_MODEL", b"CP_HW_ADDRESS")

    def __init__(self, item, source):
        self.item, self.source = item, source

    def arguments(self, value):
        return ["localcfgUpdate"]

    def request(self, value):
        files = {IDENTITY: b"", "/etc/router.ver": b"", STORE: b""}
        path, before = self.source
        files[path] = before + (escaped(value) if path == STORE else value) + b"\n"
        return Request(self.arguments(value), files)

    def captured(self, value):
        """What the shell's pipeline makes of the value."""
        path, before = self.source
        if self.item == 2:  # the tool shows the store as it lies in its file
            value = escaped(value)
        lines = value.split(b"\n")
        if self.item != 1:  # a line of a longer text
            lines = [before + lines[0], *lines[1:]]
            key = before.rstrip(b"=")
            lines = [line for line in lines if key in line]
        fields = [line.split(b"=") for line in lines]
        return b"\n".join(each[1] if len(each) > 1 else each[0] for each in fields)[:255]

    def expected(self, value):
        values = [b"", b"", b""]
        values[self.item] = self.captured(value)
        written = b""
        shells = 1
        for label, text in zip(self.labels, values):
            fits = len(b"echo '</> ' >> /etc/cpectl.cfg" + label + in_single_quotes(text)) < 512
            shells += 1 + 2 * fits
            if fits:
                written += b"</" + label + b"> " + text + b"\n"
        written = b"".join(line + b"\n" for line in written.split(b"\n") if line)
        return Expected(b'{"fun":"localcfgUpdate","stat":"ok"}' + written, [], shells)


PLACES = {
    "setAdmPass admPass": Password(),
    "ipsecAddTun tunCfg": NewLine("ipsecAddTun", "tunCfg", TUNNELS,
                                  [b"/usr/sbin/ipsec.sh", b"add"]),
    "pptpdAddUser userCfg": NewLine("pptpdAddUser", "userCfg", USERS,
                                    [b"/usr/sbin/pptp.sh", b"user_add"]),
    "ipsecTunShutdown tunName": TunnelAction("ipsecTunShutdown", b"0"),
    "ipsecTunReconn tunName": TunnelAction("ipsecTunReconn", b"1"),
    "ipsecTunReboot tunName": TunnelAction("ipsecTunReboot", b"2"),
    "ipsecConfGet postUrl": PostUrl("ipsecConfGet", TUNNELS),
    "pptpdConfGet postUrl": PostUrl("pptpdConfGet", USERS),
    "firmware description SW_VERSION": Identity(0, ("/etc/router.ver", b"SW_VERSION=")),
    "NVRAM PRODUCT_TYPE": Identity(1, (STORE, b"PRODUCT_TYPE=")),
    "NVRAM LAN_IF_MAC": Identity(2, (STORE, b"LAN_IF_MAC=")),
}


@pytest.mark.parametrize("place", PLACES)
def test_a_value_reaches_its_script_as_one_word(gateway, place, figure):
    found = PLACES[place]
    texts = payloads.chosen(list(PLACES).index(place))
    values = [longest(lambda value: found.arguments(value)[-1], text) for text in texts]
    gateway.prepare("[script /usr/bin/curl]")
    program = (rig.PROGRAM,)
    if isinstance(found, Identity):
        gateway.write("/opt/wrapper", WRAPPER.encode())
        gateway.write(STORE, b"")
        program = ("/bin/busybox", "sh", "/opt/wrapper")
    before = gateway.names()
    answers = gateway.run([found.request(value) for value in values], program=program)
    for value, answer in zip(values, answers):
        expected = found.expected(value)
        assert answer.stdout == expected.answer, value
        assert answer.scripts() == expected.scripts, value
        assert len(answer.shells()) == expected.shells, (value, answer.shells())
        assert answer.ending == "exit 0" or isinstance(found, Identity), value
    assert gateway.names() - before <= found.names
    figure(f"{place}: {len(values)} texts")
    assert len(values) >= 30
    if not payloads.shared():
        pytest.skip(f"{len(values)} own texts passed; the shared lists are not at {rig.DATA}")
