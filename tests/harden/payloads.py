"""Texts that shells trip over: a list of our own, and the shared ones."""

import itertools
import json

from rig import DATA, LONG

OWN = [
    b"a", b" ", b"a b", b" a", b"a ", b"'", b"''", b"'a", b"a'", b"a'b'c", b"'\\''", b"'\"'\"'",
    b'"', b'""', b'a"b', b'"$(touch /canary)"', b"$(touch /canary)", b"'$(touch /canary)'",
    b"`touch /canary`", b"$((1+1))", b"$HOME", b"${HOME}", b"${IFS}", b"$0", b"$$", b"$@", b"$*",
    b"\\", b"\\\\", b"a\\", b"\\n", b"\\c", b"\\0101", b"%s", b"%n%n", b"%",
    b"a\nb", b"\n", b"a\n", b"\na", b"a\ntouch /canary", b"\r\n", b"a\rb", b"\t", b"a\tb",
    b";", b"a;touch /canary", b";touch /canary;", b"|", b"a|touch /canary", b"||touch /canary",
    b"&", b"a&touch /canary", b"&&touch /canary", b"a>/canary", b"a>>/canary", b"a</etc/passwd",
    b"a 2>/canary", b"<(touch /canary)", b"<<E", b"#", b"a#b", b" #", b"!", b"!!", b"^a^b",
    b"*", b"/*", b"?", b"[a-z]*", b"{a,b}", b"{1..9}", b"~", b"~root", b"a=~", b"a:~",
    b"-", b"--", b"-n", b"-e \\t", b"--help", b"-rf", b"-o/canary", b"a=b", b"a=b touch /canary",
    b"if", b"exit", b"exit 1", b"}", b")", b"a)", b"(touch /canary)", b"{ touch /canary; }",
    b"\x7f", b"a\x7fb", b"\x01", b"\x1b[31m", b"\x08", b"\xff", b"\xfe\xff", b"a\xffb", b"\xc3",
    b"\xc3\xa4", b"\xe2\x80\xa8", b"\xf0\x9f\x98\x80", b"\xed\xa0\x80", b"\xc0\xa7", b"\xbf\x27",
    b"'\xff'", b"\xff';touch /canary;'", b"a" * 126, b"a" * 127, b"a" * 128, b"'" * 40,
    b"$(touch /canary)" * 7, b"a" * 200 + b";touch /canary", b"'" * 127 + b";touch /canary",
    b"\\'", b"\\';touch /canary;'", b"'\n'", b"'\n;touch /canary\n'", b"a\x0bb", b"a\x0cb",
]


def shared():
    """Each line of the shared lists once, in order; empty when the lists are not there."""
    found = {}
    for path in sorted((DATA / "injection").glob("*")):
        if path.name == "ORIGIN":
            continue
        if path.suffix == ".json":
            lines = [line.encode() for line in json.loads(path.read_bytes())]
        else:
            lines = path.read_bytes().split(b"\n")
        found.update(dict.fromkeys(line for line in lines if line and b"\0" not in line))
    return list(found)


def chosen(place_number):
    """All texts in the long form; in the short one a third of our own and every 97th of the shared
    ones, others for each place. (The unit tests of the shell hand all of them to a shell.)"""
    if LONG:
        return list(dict.fromkeys(OWN + shared()))
    own = OWN[place_number % 3::3]
    return list(dict.fromkeys(own + list(itertools.islice(shared(), place_number, None, 97))))
