"""What the files of a gateway are at one moment, and what changed between two."""

import os
import stat
from dataclasses import dataclass

from . import store, text

_LARGE = 1 << 20  # such files count as changed when size or time differ


@dataclass(frozen=True)
class Entry:
    kind: str  # file, dir, symlink, fifo, other
    mode: int
    content: object = None  # bytes, target of a link, or for large files size and time


@dataclass(frozen=True)
class Change:
    path: str  # as the gateway sees it
    what: str  # created, changed, removed
    kind: str
    detail: str = ""
    content: str = None


def _entry(path):
    status = os.lstat(path)
    mode = stat.S_IMODE(status.st_mode)
    if stat.S_ISLNK(status.st_mode):
        return Entry("symlink", 0, os.readlink(path))
    if stat.S_ISDIR(status.st_mode):
        return Entry("dir", mode)
    if stat.S_ISFIFO(status.st_mode):
        return Entry("fifo", mode)
    if not stat.S_ISREG(status.st_mode):
        return Entry("other", mode)
    if status.st_size > _LARGE:
        return Entry("file", mode, (status.st_size, status.st_mtime_ns))
    try:
        with open(path, "rb") as file:
            return Entry("file", mode, file.read())
    except PermissionError:
        return Entry("file", mode, (status.st_size, status.st_mtime_ns))


def take(root):
    """All entries below the root, by their paths without the leading slash."""
    found = {}

    def walk(directory, prefix):
        for item in os.scandir(directory):
            path = prefix + item.name
            entry = found[path] = _entry(item.path)
            if entry.kind == "dir":
                walk(item.path, path + "/")

    walk(root, "")
    return found


def _change(path, before, after):
    if after is None:
        return Change("/" + path, "removed", before.kind)
    what = "created" if before is None else "changed"
    if after.kind == "file" and isinstance(after.content, bytes):
        if before and before.kind == "file" and before.content == after.content:
            return Change("/" + path, "changed", "file", f" (mode {after.mode:o})")
        content = text.from_bytes(after.content)
        return Change("/" + path, what, "file", f" ({len(after.content)} bytes)", content)
    detail = "" if after.kind == "file" else f" ({after.kind})"
    return Change("/" + path, what, after.kind, detail)


def changes(before, after):
    """What differs between two moments, in the order of the paths, without the stores' files."""
    found = []
    for path in sorted(before.keys() | after.keys()):
        if before.get(path) != after.get(path) and not store.is_store_file(path):
            found.append(_change(path, before.get(path), after.get(path)))
    return found
