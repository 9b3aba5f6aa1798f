"""JSON as the libcjson of Debian 12 (1.7.15) reads and prints it, oddities included.

Texts are bytes throughout: the library neither checks nor changes an encoding. A parsed value is

    None, True, False      null, true, false
    float                  a number
    bytes                  a string, as C code sees it: it ends at its first NUL
    list                   an array
    Object                 an object: a list of (name, value) pairs in their order, doubles kept
"""

import math
import struct
import sys

NESTING_LIMIT = 1000
sys.setrecursionlimit(10 * NESTING_LIMIT)


class Object(list):
    """The members of an object, as (name, value) pairs."""


class Refused(Exception):
    """The text is no JSON for the library."""


def parse(text):
    """The value at the start of `text`, whatever follows it; Refused when there is none."""
    reader = _Reader(text.split(b"\0")[0] + b"\0")
    if reader.text.startswith(b"\xef\xbb\xbf") and len(reader.text) > 4:
        reader.at = 3
    reader.skip_blanks()
    return reader.value()


def parse_or_none(text):
    """The parsed value, or None when the text is refused (so `null` reads as None as well)."""
    try:
        return parse(text)
    except Refused:
        return None


class _Reader:
    def __init__(self, text):
        self.text = text  # with its terminating NUL
        self.at = 0
        self.depth = 0

    def peek(self):
        return self.text[self.at:self.at + 1]

    def skip_blanks(self):
        while self.at < len(self.text) and self.text[self.at] <= 32:
            self.at += 1
        if self.at == len(self.text):
            self.at -= 1

    def value(self):
        for word, meaning in ((b"null", None), (b"false", False), (b"true", True)):
            if self.text.startswith(word, self.at):
                self.at += len(word)
                return meaning
        first = self.peek()
        if first == b'"':
            return self.string()
        if first and first in b"-0123456789":
            return self.number()
        if first == b"[":
            return self.array()
        if first == b"{":
            return self.object()
        raise Refused

    def number(self):
        end = self.at
        while self.text[end] in b"0123456789+-eE.":
            end += 1
        length, number = _strtod(self.text[self.at:end])
        if length == 0:
            raise Refused
        self.at += length
        return number

    def string(self):
        if self.peek() != b'"':
            raise Refused
        start = end = self.at + 1
        while end < len(self.text) and self.text[end:end + 1] != b'"':
            if self.text[end:end + 1] == b"\\":
                if end + 1 >= len(self.text):
                    raise Refused
                end += 1
            end += 1
        if end >= len(self.text):
            raise Refused
        out = bytearray()
        at = start
        while at < end:
            if self.text[at] != 0x5c:
                out.append(self.text[at])
                at += 1
                continue
            letter = self.text[at + 1:at + 2]
            if letter == b"u":
                length, character = self.unicode_escape(at, end)
                out += character
                at += length
                continue
            if not letter or letter not in b'bfnrt"\\/':
                raise Refused
            out += dict(zip(b'bfnrt"\\/', (b"\b", b"\f", b"\n", b"\r", b"\t", b'"', b"\\", b"/")))[
                letter[0]]
            at += 2
        self.at = end + 1
        return bytes(out).split(b"\0")[0]

    def unicode_escape(self, at, end):
        """(length of the escape, its UTF-8). Wrong digits count as the code 0."""
        if end - at < 6:
            raise Refused
        code = _hex4(self.text[at + 2:at + 6])
        if 0xDC00 <= code <= 0xDFFF:
            raise Refused
        if not 0xD800 <= code <= 0xDBFF:
            return 6, _utf8(code)
        if end - (at + 6) < 6 or self.text[at + 6:at + 8] != b"\\u":
            raise Refused
        low = _hex4(self.text[at + 8:at + 12])
        if not 0xDC00 <= low <= 0xDFFF:
            raise Refused
        return 12, _utf8(0x10000 + ((code & 0x3FF) << 10 | (low & 0x3FF)))

    def array(self):
        self.enter()
        items = []
        if self.peek() == b"]":
            return self.leave(items)
        while True:
            items.append(self.value())
            self.skip_blanks()
            if self.peek() != b",":
                break
            self.at += 1
            self.skip_blanks()
        if self.peek() != b"]":
            raise Refused
        return self.leave(items)

    def object(self):
        self.enter()
        members = Object()
        if self.peek() == b"}":
            return self.leave(members)
        while True:
            name = self.string()
            self.skip_blanks()
            if self.peek() != b":":
                raise Refused
            self.at += 1
            self.skip_blanks()
            members.append((name, self.value()))
            self.skip_blanks()
            if self.peek() != b",":
                break
            self.at += 1
            self.skip_blanks()
        if self.peek() != b"}":
            raise Refused
        return self.leave(members)

    def enter(self):
        if self.depth >= NESTING_LIMIT:
            raise Refused
        self.depth += 1
        self.at += 1
        self.skip_blanks()

    def leave(self, result):
        self.depth -= 1
        self.at += 1
        return result


def _hex4(digits):
    if len(digits) == 4 and all(c in b"0123456789abcdefABCDEF" for c in digits):
        return int(digits, 16)
    return 0


def _utf8(code):
    return chr(code).encode("utf-8", "surrogatepass")


def _strtod(text):
    """(characters used, number), as strtod() takes the longest number at the start."""
    for length in range(len(text), 0, -1):
        try:
            return length, float(text[:length])
        except ValueError:
            continue
    return 0, 0.0


def member(value, name):
    """The first member with that name, upper and lower case alike; None when there is none or
    `value` is no object. A member that is null comes back as None too: see has_member()."""
    found = _find(value, name)
    return found[1] if found else None


def has_member(value, name):
    return _find(value, name) is not None


def _find(value, name):
    if not isinstance(value, Object):
        return None
    wanted = name.lower()
    for pair in value:
        if pair[0].lower() == wanted:
            return pair
    return None


def text_of(value, name):
    """The string value of a member; None when it is absent or no string."""
    found = member(value, name)
    return found if isinstance(found, bytes) else None


_SHORT = {0x22: b'\\"', 0x5c: b"\\\\", 8: b"\\b", 12: b"\\f", 10: b"\\n", 13: b"\\r", 9: b"\\t"}


def print_unformatted(value):
    """The value on one line, as cJSON_PrintUnformatted() prints it."""
    if value is None:
        return b"null"
    if value is True:
        return b"true"
    if value is False:
        return b"false"
    if isinstance(value, (int, float)):
        return _print_number(float(value))
    if isinstance(value, bytes):
        return _print_string(value)
    if isinstance(value, Object):
        return b"{" + b",".join(_print_string(name) + b":" + print_unformatted(item)
                                for name, item in value) + b"}"
    return b"[" + b",".join(print_unformatted(item) for item in value) + b"]"


def _print_string(text):
    out = bytearray(b'"')
    for c in text.split(b"\0")[0]:
        if c in _SHORT:
            out += _SHORT[c]
        elif c < 32:
            out += b"\\u%04x" % c
        else:
            out.append(c)
    return bytes(out + b'"')


def _print_number(number):
    if math.isnan(number) or math.isinf(number):
        return b"null"
    short = b"%1.15g" % number
    again = float(short)
    bound = max(abs(again), abs(number)) * 2.0 ** -52
    return short if abs(again - number) <= bound else b"%1.17g" % number


def float32(number):
    """The number rounded to single precision."""
    return struct.unpack("f", struct.pack("f", number))[0]
