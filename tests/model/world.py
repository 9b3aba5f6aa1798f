"""The gateway as the model sees it: what it holds before a request, and what a request does to it.

A `World` is plain data. A `Gateway` is a world at work: handlers call its methods as the program
calls the platform, and it keeps the ordered record of these calls. All texts are bytes.
"""

import copy
import re
from dataclasses import dataclass, field

CAPTURE_SIZE = 2048
SHELL_SAFE = frozenset(b"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_@%+=:,./-")


@dataclass
class Script:
    """What a script or tool of the gateway prints and returns."""

    prints: bytes = b""
    status: int = 0


@dataclass
class Host:
    """One record of the host table."""

    ip: bytes
    down_total: int = 0
    up_total: int = 0
    down_rate: int = 0
    up_rate: int = 0


@dataclass
class Station:
    ip: bytes
    ssid: bytes
    flags: int = 1


@dataclass
class WanLink:
    """One entry of the WAN rate reply, in bits per second."""

    name: bytes
    down: int = 0
    up: int = 0


@dataclass
class Device:
    """A network device with an IPv4 address."""

    address: bytes
    peer: bytes


@dataclass
class World:
    nvram: dict = field(default_factory=dict)
    committed: dict = field(default_factory=dict)
    mvram: dict = field(default_factory=dict)
    files: dict = field(default_factory=dict)  # path -> content, /proc and /sys included
    readings: dict = field(default_factory=dict)  # path -> contents of its openings, in order
    missing_folders: set = field(default_factory=set)
    scripts: dict = field(default_factory=dict)  # path -> Script
    hosts: list = field(default_factory=list)
    stations: list = field(default_factory=list)
    wan: list = None  # None: no reply comes
    wan_count: int = None  # the count that the reply states, when it is not the number of links
    neighbours: dict = field(default_factory=dict)  # address -> MAC, both as canonical text
    devices: dict = field(default_factory=lambda: {b"lo": Device(b"127.0.0.1", b"127.0.0.1")})
    absent_libraries: set = field(default_factory=set)
    web: dict = None  # status and body of the over-the-air server; None: its name is unknown


@dataclass
class Outcome:
    """What a request did."""

    stdout: bytes
    status: int
    complains: bool  # one line of the program's own on standard error
    calls: list  # of tuples: ("nvram_set", key, value), ("shell", text) ...
    world: World  # afterwards


class Gateway:
    """A world at work."""

    def __init__(self, world):
        self.world = copy.deepcopy(world)
        self.calls = []
        self.printed = b""

    def record(self, *call):
        self.calls.append(call)

    def has(self, library):
        return library not in self.world.absent_libraries

    # -- the two stores

    def nvram_get(self, key):
        if not self.has("nvram"):
            return None
        self.record("nvram_get", key)
        return self.world.nvram.get(key)

    def nvram_set(self, key, value):
        if self.has("nvram"):
            self.record("nvram_set", key, value)
            self.world.nvram[key] = value

    def nvram_commit(self):
        if self.has("nvram"):
            self.record("nvram_commit")
            if self.can_create(b"/disk/conf/nvram"):
                self.world.committed = dict(self.world.nvram)

    def mvram_get(self, key):
        if not self.has("mvram"):
            return None
        self.record("mvram_get", key)
        return self.world.mvram.get(key)

    def mvram_set(self, key, value):
        if self.has("mvram"):
            self.record("mvram_set", key, value)
            self.world.mvram[key] = value

    def nvram_text(self, key):
        return self.nvram_get(key) or b""

    def mvram_text(self, key):
        return self.mvram_get(key) or b""

    def nvram_update(self, key, value):
        """Store-if-changed: read once, written when absent or different."""
        if self.nvram_get(key) != value:
            self.nvram_set(key, value)

    def mvram_update(self, key, value):
        if self.mvram_get(key) != value:
            self.mvram_set(key, value)

    # -- files

    def read(self, path):
        """The file's content; None when it cannot be opened."""
        readings = self.world.readings.get(path)
        if readings:
            return readings.pop(0) if len(readings) > 1 else readings[0]
        return self.world.files.get(path)

    def can_create(self, path):
        return path.rpartition(b"/")[0] not in self.world.missing_folders

    def write(self, path, content):
        """False when the folder is missing."""
        if not self.can_create(path):
            return False
        self.world.files[path] = content
        return True

    def append(self, path, content):
        return self.write(path, self.world.files.get(path, b"") + content)

    def remove(self, path):
        self.world.files.pop(path, None)

    # -- the shell

    def shell(self, text):
        """A command text whose effect nobody waits for or looks at."""
        self.record("shell", text)

    def script(self, path):
        return self.world.scripts.get(path, Script())

    def capture(self, text, output, size=CAPTURE_SIZE):
        """A command text whose output (given by the caller) is captured into `size` bytes."""
        self.record("shell", text)
        return captured(output, size)


def captured(output, size=CAPTURE_SIZE):
    """What a buffer of `size` bytes holds after capturing this output of a command."""
    text = c_text(output[:CAPTURE_SIZE])
    if text.endswith(b"\n"):
        text = text[:-1]
    return text[:size - 1]


def c_text(text):
    return text.split(b"\0")[0]


def cut(text, size):
    """The text as a buffer of `size` bytes holds it."""
    return c_text(text)[:size - 1]


def shell_word(value):
    """A value as it stands in a command text, outside quotes."""
    if all(c in SHELL_SAFE for c in value):
        return value
    return b"'" + in_single_quotes(value) + b"'"


def in_single_quotes(value):
    return value.replace(b"'", b"'\\''")


def fits(text, size):
    return len(text) < size


# -- the few tools of the gateway whose output the program reads

def lines_of(content):
    """The lines without their ends; a last line may lack one."""
    lines = (content or b"").split(b"\n")
    return lines[:-1] if lines[-1] == b"" else lines


def joined(lines):
    return b"".join(line + b"\n" for line in lines)


def grep(word, content):
    return joined(line for line in lines_of(content) if word in line)


def grep_not(pattern, content):
    return joined(line for line in lines_of(content) if not re.search(pattern, line))


def cut_field(separator, number, content):
    """cut -d SEPARATOR -f NUMBER: a line without the separator stands as it is."""
    def field_of(line):
        parts = line.split(separator)
        if len(parts) == 1:
            return line
        return parts[number - 1] if number <= len(parts) else b""
    return joined(field_of(line) for line in lines_of(content))


def cut_bytes_from(start, content):
    return joined(line[start - 1:] for line in lines_of(content))


def sed_delete(word, content):
    """sed '/WORD/d': the other lines with the ends that they have."""
    return b"".join(line for line in pieces(content) if word not in line)


def sed_delete_empty(content):
    return b"".join(line for line in pieces(content) if line != b"\n")


def pieces(content, limit=None):
    """The content as fgets() hands it over: lines with their ends, at most `limit` bytes each."""
    for line in re.findall(rb"[^\n]*\n|[^\n]+\Z", content):
        if limit is None:
            yield line
            continue
        for start in range(0, len(line), limit):
            yield line[start:start + limit]


# -- addresses

def inet_addr(text):
    """The four bytes of an address text as inet_addr() reads it; None where it answers all ones."""
    match = re.match(rb"([0-9a-fA-FxX.]+)(?=[ \t\n\v\f\r]|\Z)", text)
    parts = match.group(1).split(b".") if match else []
    numbers = [_address_part(part) for part in parts]
    if not 1 <= len(numbers) <= 4 or None in numbers:
        return None
    if any(number > 255 for number in numbers[:-1]) or numbers[-1] >= 256 ** (5 - len(numbers)):
        return None
    value = numbers[-1] + sum(number << (24 - 8 * i) for i, number in enumerate(numbers[:-1]))
    return None if value == 0xFFFFFFFF else value.to_bytes(4, "big")


def _address_part(part):
    for pattern, base in ((rb"0[xX][0-9a-fA-F]+\Z", 16), (rb"0[0-7]*\Z", 8),
                          (rb"[1-9][0-9]*\Z", 10)):
        if re.match(pattern, part):
            return int(part, base)
    return None


def inet_text(address):
    return b".".join(b"%d" % byte for byte in address)
