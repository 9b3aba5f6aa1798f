#!/usr/bin/python3
"""Makes the seeds of the fuzz entry points out of the request cases and the shared test data.

usage: tools/harden/seeds.py DIRECTORY    (one folder for each entry point is made in it)
"""

import hashlib
import os
import re
import struct
import sys
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "gateway"))

from cpectl_sim import case, text  # noqa: E402

DATA = Path(os.environ.get("CPECTL_DATA", PROJECT / "../shared/data"))
BETWEEN = b"\xfe"  # separates the pieces of an input
LINE_FILES = ("/disk/conf/ipsec.cfg", "/disk/conf/pptpuser.cfg")
KERNEL_TEXTS = ("/proc/stat", "/proc/meminfo", "/proc/net/dev", "/proc/uptime",
                "/proc/sys/net/netfilter/nf_conntrack_count",
                "/proc/sys/net/ipv4/netfilter/ip_conntrack_count",
                "/sys/module/fc/parameters/active_host")
TARGETS = ("request", "line_file", "tunnel_state", "clients", "proc", "router_ver", "offer",
           "platform")


def command_names():
    """The commands in the order of the program's table."""
    table = (PROJECT / "src/main/command_table.cpp").read_text()
    return re.findall(r'^    \{"(\w+)",', table, re.MULTILINE)


def cases():
    for path in sorted((PROJECT / "tests/cases").glob("*/*")):
        if path.is_file() and not path.suffix:
            yield case.load(path)


def content_of(section):
    raw = section.options()[0][-1:] == ["raw"]
    return text.to_bytes(section.raw() if raw else section.content())


def request_seed(commands, arguments):
    """The command's number and the argument text, or None where there is no such command."""
    for number, name in enumerate(commands):
        if len(arguments) == 2 and arguments[0].startswith(name):
            return bytes([number]) + text.to_bytes(arguments[1])
    return None


def printed(section):
    """What the steps of a [script] section print."""
    lines = [line.split(" ", 1)[1].strip(" ") for line in section.lines
             if line.startswith("print ")]
    return b"".join(text.to_bytes(text.value(line)) + b"\n" for line in lines)


def host_records(section):
    made = b""
    for line in section.lines:
        ip, *numbers = text.words(line) if line != "fails" else [""]
        numbers = [int(number, 0) for number in numbers] or [0] * 4
        made += struct.pack("=40sQQII8x", text.to_bytes(ip)[:40],
                            *(number % 2**64 for number in numbers[:2]),
                            *(number % 2**32 for number in numbers[2:]))
    return made


def station_records(section):
    made = b""
    for line in section.lines:
        ip, ssid, flags = text.words(line)
        made += struct.pack("=18x16s146sI8x", text.to_bytes(ip)[:16], text.to_bytes(ssid)[:146],
                            int(flags, 0) % 2**32)
    return made


def wan_reply(section):
    made = b""
    for line in section.lines:
        name, down, up = text.words(line)
        made += struct.pack("=ii8x32s", int(down, 0), int(up, 0), text.to_bytes(name)[:32])
    count = int(section.options()[1].get("count", len(section.lines)))
    return struct.pack("=24xi20x", count) + made


def halves(first, second):
    """Two texts of one length, padded, as an entry point that cuts in the middle takes them."""
    size = max(len(first), len(second))
    return first.ljust(size, b"\0") + second.ljust(size, b"\0")


class Gateway:
    """What the sections of a case say, as far as a seed can be made of it."""

    def __init__(self, step):
        self.files = {}
        self.tables = {"hosts": b"", "stations": b""}
        self.wan = None
        self.bodies = []
        self.status = b""
        for section in step.world:
            self.take(section)

    def take(self, section):
        if section.name == "file":
            self.files[section.words[0]] = content_of(section)
        elif section.name == "hosts":
            self.tables["hosts"] = host_records(section)
        elif section.name == "stations":
            self.tables["stations"] = station_records(section)
        elif section.name == "wan" and section.words != ["none"]:
            self.wan = wan_reply(section)
        elif section.name == "http":
            self.bodies.append(content_of(section))
        elif section.name == "script" and "ipsec" in section.words[0]:
            self.status += printed(section)


NAME = re.compile(r'"(?:tunName|userName|tunCfg|userCfg)" *: *"([^"]*)"')


def names_in(arguments):
    return [text.to_bytes(name) for argument in arguments[1:] for name in NAME.findall(argument)]


def seeds_of(step, commands):
    """(entry point, input) for a request with the gateway it ran on."""
    gateway = Gateway(step)
    request = step.arguments and request_seed(commands, step.arguments)
    if request:
        yield "request", request
    for path in LINE_FILES:
        if path in gateway.files:
            for name in names_in(step.arguments) or [b"tun1"]:
                yield "line_file", BETWEEN.join([name, name, gateway.files[path]])
    if gateway.status:
        yield "tunnel_state", BETWEEN.join([
            gateway.files.get(LINE_FILES[0], b""), gateway.status, gateway.status])
    if "/tmp/pptp_clients" in gateway.files:
        yield "clients", gateway.files["/tmp/pptp_clients"]
    for path in KERNEL_TEXTS:
        if path in gateway.files:
            yield "proc", b"1" + gateway.files[path] + BETWEEN + b"eth0"
    if "/etc/router.ver" in gateway.files:
        yield "router_ver", gateway.files["/etc/router.ver"]
    for body in gateway.bodies:
        yield "offer", body
    if gateway.wan:
        yield "platform", b"\0" + gateway.wan
    if any(gateway.tables.values()):
        for kind in b"\1", b"\3":  # a list of stations, and a ring
            yield "platform", kind + halves(gateway.tables["hosts"], gateway.tables["stations"])


def shared_seeds():
    for path in sorted(DATA.glob("json/test_*/*.json")):
        yield "offer", path.read_bytes()
        yield "request", b"\4" + path.read_bytes()
    for path in sorted(DATA.glob("proc/*.txt")):
        yield "proc", b"1" + path.read_bytes() + BETWEEN + b"eth0"
    for path in sorted(DATA.glob("whack/*.txt")):
        yield "tunnel_state", BETWEEN.join([b"conn a b c d 0.0.0.0\n", path.read_bytes(), b""])


def write_seed(directory, target, data):
    if len(data) > 1 << 16:
        return
    (directory / target / hashlib.sha1(data).hexdigest()).write_bytes(data)


def make(directory):
    """Writes all seeds, in one folder for each entry point."""
    for target in TARGETS:
        (directory / target).mkdir(parents=True, exist_ok=True)
    commands = command_names()
    for each in cases():
        for step in each.steps:
            for target, data in seeds_of(step, commands):
                write_seed(directory, target, data)
    for number in range(len(commands)):
        write_seed(directory, "request", bytes([number]) + b"{}")
    for target, data in shared_seeds():
        write_seed(directory, target, data)


def main():
    directory = Path(sys.argv[1])
    make(directory)
    for target in TARGETS:
        print(f"{target:14}{len(list((directory / target).iterdir())):6} seeds")


if __name__ == "__main__":
    main()
