"""What ipsecTunStaGet has to answer, stated once more: from the text of a tunnel file and a status.

It shares nothing with the program. All texts are bytes.
"""

import re

TUNNELS = 500
LINE = 1023    # characters read at once of a tunnel line and of an unrouted line
STATUS = 1024  # of an established line


def pieces(text, size):
    """The lines of a text, their newlines included, as they are read: long ones in pieces."""
    for line in re.findall(rb"[^\n]*\n|[^\n]+", text):
        for start in range(0, len(line), size):
            yield line[start:start + size]


def established(status):
    """The lines of connections that are up and own their route."""
    return [line for line in status.splitlines(True)
            if b"eroute owner" in line and b"established" in line]


def unrouted(status):
    """The lines of connections without a route. The last pattern is a regular expression."""
    return [line for line in status.splitlines(True)
            if b"; unrouted;" in line and b"; erouted;" not in line and b"established" not in line
            and not re.search(rb"0.0.0.0", line)]


def tunnels_of(file):
    """Name and peer of each tunnel, in the order of the file."""
    found = []
    for line in pieces(file, LINE):
        words = line.rstrip(b"\n").split(b" ")
        if not words[0] or len(found) == TUNNELS:
            break
        found.append([words[0][:127], words[5][:19] if len(words) > 6 else b"", 0])
    return found


def first(tunnels, connection):
    """The first tunnel that a connection of the daemon stands for."""
    return next((tunnel for tunnel in tunnels if b"conn_" + tunnel[0] == connection), None)


def take_established(tunnels, line):
    match = re.match(rb'.{4}#[^"\n]*"(c[^"/\n]*)(?:["/](.*))?', line)
    tunnel = match and first(tunnels, match[1])
    if not tunnel:
        return
    shown = re.search(rb"\] (.?[^:\n]*)", match[2] or b"")
    if tunnel[1].startswith(b"0.0.0.0") and shown:
        tunnel[1] = shown[1][:19]
    tunnel[2] = 1


def take_unrouted(tunnels, line):
    match = re.match(rb'.{4}"([^"/\n]*)', line)
    tunnel = match and first(tunnels, match[1])
    if tunnel:
        tunnel[2] = 0


def state_file(file, status):
    """What the program writes for itself: name, 0, address and state of each tunnel."""
    tunnels = tunnels_of(file)
    for line in pieces(b"".join(established(status)), STATUS):
        take_established(tunnels, line)
    for line in pieces(b"".join(unrouted(status)), LINE):
        take_unrouted(tunnels, line)
    return b"".join(b"%s 0 %s %d \n" % (name, peer if state else b"0.0.0.0", state)
                    for name, peer, state in tunnels)


def answer(file, status):
    """Name, address and state of each tunnel, as read back from there word by word."""
    return [(words[0], words[2], words[3])
            for words in (line.split(b" ") for line in state_file(file, status).splitlines())]
