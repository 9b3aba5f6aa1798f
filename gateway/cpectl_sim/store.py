"""The files of the stock stores: one KEY=VALUE line an entry, line ends in values escaped."""

import re
from pathlib import Path

from . import text

RUN_DIR = "var/run/cpectl"
FLASH_DIR = "disk/conf"

# Where each store's content is, below the root: the first file that exists counts.
FILES = {
    "nvram": (f"{RUN_DIR}/nvram", f"{FLASH_DIR}/nvram"),
    "committed": (f"{FLASH_DIR}/nvram",),
    "mvram": (f"{RUN_DIR}/mvram",),
}

_ESCAPE = re.compile(r"\\([nr\\])")
_MEANING = {"n": "\n", "r": "\r", "\\": "\\"}


def is_store_file(path):
    """Whether a path below the root belongs to the stores."""
    return path.startswith(RUN_DIR) or path in (f"{FLASH_DIR}/nvram", f"{FLASH_DIR}/nvram.new")


def decode(content):
    """The entries of a store's file; of several with one key the first counts."""
    entries = {}
    for line in content.split("\n"):
        key, equals, value = line.partition("=")
        if equals and key and "\0" not in line:
            entries.setdefault(key, _ESCAPE.sub(lambda match: _MEANING[match[1]], value))
    return entries


def encode(entries):
    lines = []
    for key, value in entries.items():
        value = value.replace("\\", "\\\\").replace("\n", "\\n").replace("\r", "\\r")
        lines.append(f"{key}={value}\n")
    return "".join(lines)


def read(root, name):
    """The content of a store of the gateway in `root`."""
    for file in FILES[name]:
        try:
            return decode(text.from_bytes((Path(root) / file).read_bytes()))
        except FileNotFoundError:
            continue
    return {}


def write(root, name, entries):
    """Replaces the content of a store that nobody uses at the moment."""
    path = Path(root) / FILES[name][0]
    path.parent.mkdir(mode=0o700, parents=True, exist_ok=True)
    path.write_bytes(text.to_bytes(encode(entries)))
