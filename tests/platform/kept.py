"""Changes the files that the libraries keep between runs: lets time pass in no time, say."""
import contextlib
import fcntl
import struct
import time

SURROUNDINGS = struct.Struct("=40sQ")
WAN_HEAD = struct.Struct("=II40sQq")           # format, count, surroundings, time
WAN_LINK = struct.Struct("=16sIIQQ")           # device, index, -, received, sent
HOST_HEAD = struct.Struct("=IIII40sQq")        # format, hosts, flows, -, surroundings, time
HOST = struct.Struct("=4s4xQQ")
FLOW = struct.Struct("=II4s4sHHIIIQQ")         # number, began, ..., sent, answered

NANOSECONDS = 1_000_000_000


def edit(path, head, change):
    """Calls `change` with the head's fields as a list, which it may alter, and the rest's bytes,
    which it may return anew."""
    content = path.read_bytes()
    fields = list(head.unpack_from(content))
    rest = bytearray(content[head.size:])
    rest = change(fields, rest) or rest
    path.write_bytes(head.pack(*fields) + rest)


def age(path, head, seconds):
    """Makes a kept reading `seconds` old."""
    def set_time(fields, _rest):
        fields[-1] = time.monotonic_ns() - int(seconds * NANOSECONDS)
    edit(path, head, set_time)


def wan_links(path):
    content = path.read_bytes()
    count = WAN_HEAD.unpack_from(content)[1]
    return [WAN_LINK.unpack_from(content, WAN_HEAD.size + i * WAN_LINK.size) for i in range(count)]


def set_wan_counters(path, received, sent):
    """Sets what all links had moved at the kept reading."""
    def change(fields, rest):
        for i in range(fields[1]):
            at = i * WAN_LINK.size
            device, index, spare, _, _ = WAN_LINK.unpack_from(rest, at)
            WAN_LINK.pack_into(rest, at, device, index, spare, received, sent)
    edit(path, WAN_HEAD, change)


@contextlib.contextmanager
def locked(path):
    """Holds the lock of a kept file, as a run that writes it does."""
    with open(path.with_name(path.name + ".lock"), "a", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def add_to_totals(path, amount):
    """Makes every host's totals larger."""
    def change(fields, rest):
        for i in range(fields[1]):
            address, down, up = HOST.unpack_from(rest, i * HOST.size)
            HOST.pack_into(rest, i * HOST.size, address, down + amount, up + amount)
    edit(path, HOST_HEAD, change)
