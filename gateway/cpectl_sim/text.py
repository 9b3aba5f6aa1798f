"""Texts as case files write them: values, words, JSON strings that may hold any byte.

Everywhere in this package a text that came from bytes is a str decoded as UTF-8 with
"surrogateescape": the byte 0xff, say, is the character U+DCFF.
"""

import json
import re

_REPEAT = re.compile(r"\{\{(.+?)\*(\d+)\}\}", re.DOTALL)
_LONG_RUN = re.compile(r"(.)\1{63,}", re.DOTALL)
_SURROGATE = re.compile("[\ud800-\udfff]")
_WORD = re.compile(r'"(?:[^"\\]|\\.)*"|\S+')


def to_bytes(text):
    return text.encode("utf-8", "surrogateescape")


def from_bytes(data):
    return data.decode("utf-8", "surrogateescape")


def normal(text):
    """The one spelling of a text: bytes given one by one that make a character become it."""
    return from_bytes(to_bytes(text))


def expand(text):
    """Replaces each {{x*3}} by xxx."""
    if "{{" not in text:
        return text
    return _REPEAT.sub(lambda match: match[1] * int(match[2]), text)


def shorten(text):
    """Writes long runs of one character as {{x*1000}}, for people."""
    return _LONG_RUN.sub(lambda match: "{{%s*%d}}" % (match[1], len(match[0])), text)


def from_json(text):
    """A JSON string; raises ValueError for anything else."""
    value = json.loads(text)
    if not isinstance(value, str):
        raise ValueError(f"not a JSON string: {text}")
    return normal(value)


def to_json(text):
    """A text as a JSON string in which everything that nobody would see is escaped."""
    quoted = json.dumps(text, ensure_ascii=False).replace("\x7f", "\\u007f")
    return _SURROGATE.sub(lambda match: "\\u%04x" % ord(match[0]), quoted)


def value(text):
    """The text that a value in a case file stands for."""
    return from_json(text) if text.startswith('"') else text


def words(line):
    """The words of a line of a case file."""
    found = []
    end = 0
    for match in _WORD.finditer(line):
        if line[end:match.start()].strip(" ") or (found and match.start() == end):
            raise ValueError(f"words are separated by blanks: {line}")
        found.append(value(match[0]))
        end = match.end()
    return found


def _visible(text):
    return text.isprintable() and not text.startswith('"')


def word_written(text):
    """A text as a word of a case file."""
    plain = text and _visible(text) and not any(letter.isspace() for letter in text)
    return text if plain else to_json(text)


def value_written(text):
    """A text as a value, or as the rest of a line, of a case file."""
    plain = text and _visible(text) and text == text.strip(" ")
    return text if plain else to_json(text)


def words_written(parts):
    return " ".join(word_written(part) for part in parts)
