"""Puts the gateway's root together: the arguments that tell bwrap what to mount where."""

import os
from pathlib import Path

from . import base

COUNTERS = "/.gateway/counters"
_HIDDEN_PROC = "/.gateway/proc"
QEMU_ARP = "libqemu_arp.so"  # beside the recording libraries of another machine type


# What stands in the gateway's root besides the directories and files of its own.
FIXED = {"bin", "sbin", "usr", "lib", "lib32", "lib64", "dev", "proc", "platform", "recording",
         ".gateway"}


def _own_files(root):
    """The gateway's own directories, files and links."""
    arguments = []
    for entry in os.scandir(root):
        if entry.name in FIXED:
            continue
        if entry.is_symlink():
            arguments += ["--symlink", os.readlink(entry.path), f"/{entry.name}"]
        else:
            arguments += ["--bind", entry.path, f"/{entry.name}"]
    return arguments


def _libraries(lib_root):
    """The dynamic loader and the libraries of this machine, or of another system root."""
    arguments = []
    for name in ("usr/lib", "usr/lib64", "usr/lib32", "lib", "lib64", "lib32"):
        path = Path(lib_root or "/") / name
        if path.is_symlink():
            arguments += ["--symlink", f"usr/{name}", f"/{name}"]
        elif path.is_dir():
            arguments += ["--ro-bind", str(path), f"/{name}"]
    return arguments


def _programs(place):
    """The real programs, in the places to which the links of the fixed part lead."""
    arguments = []
    built = {"cpectl": place.program, "nvram": place.nvram}
    for name in base.PROGRAMS:
        source = built.get(name) or base.host_tool(name)
        arguments += ["--ro-bind", str(source), f"{base.PROGRAMS_DIR}/{name}"]
    return arguments


def _changed_programs(world):
    """What stands in program directories otherwise than usual: path to bytes, a link, or None."""
    changed = dict(world.programs)
    for path, *_ in world.scripts:
        changed.setdefault(path, "recorder")
    for path in world.script_texts:
        changed.setdefault(path, "recorder")
    return {path: what for path, what in changed.items()
            if path.rpartition("/")[0] in base.PROGRAM_DIRS}


def _copy_directory(source, target, changed):
    """A copy of a program directory with some entries changed."""
    target.mkdir(parents=True)
    for entry in os.scandir(source):
        if entry.name not in changed:
            os.symlink(os.readlink(entry.path), target / entry.name)
    for name, what in changed.items():
        if what == "recorder":
            (target / name).symlink_to(f"{base.HELPERS}/recorder")
        elif what is not None:
            (target / name).write_bytes(what)
            (target / name).chmod(0o755)


def _changed_directories(world, base_dir, run_dir):
    """Mounts for the program directories that the world changes."""
    changed = _changed_programs(world)
    arguments = []
    for number, directory in enumerate(sorted({path.rpartition("/")[0] for path in changed})):
        here = {path.rpartition("/")[2]: what for path, what in changed.items()
                if path.rpartition("/")[0] == directory}
        copy = run_dir / "programs" / str(number)
        _copy_directory(base_dir / directory[1:], copy, here)
        arguments += ["--ro-bind", str(copy), directory]
    return arguments


def functions(world, base_dir):
    """Shell functions that lead the shell to what the world has in the place of its own tools."""
    builtins = base.shell_builtins(base_dir)
    lines = []
    for path in _changed_programs(world):
        name = path.rpartition("/")[2]
        if name in builtins and name.isidentifier():
            lines.append(f'{name}() {{ {path} "$@"; }}; ')
    return "".join(lines)


def make_proc(directory, entries, readings):
    """A stand-in for /proc: links to the real one, except for the entries given.

    `entries` maps a path below /proc to its content, or to None for a path that is not there;
    paths in `readings` become FIFOs.
    """
    paths = {**entries, **{path: "fifo" for path in readings}}
    levels = {""}
    for path in paths:
        parts = path.split("/")
        levels.update("/".join(parts[:count]) for count in range(1, len(parts)))
    for level in sorted(levels):
        (directory / level).mkdir(parents=True)
        real = Path("/proc") / level
        names = os.listdir(real) if real.is_dir() else []
        for name in names:
            path = f"{level}/{name}".lstrip("/")
            if path in levels or path in paths or name.isdigit():
                continue
            os.symlink(f"{_HIDDEN_PROC}/{path}", directory / path)
    for path, content in paths.items():
        if content == "fifo":
            os.mkfifo(directory / path)
        elif content is not None:
            (directory / path).write_bytes(content)


def _real_proc(place):
    """The kernel's own /proc. What changes the machine itself is read-only, for root, too."""
    arguments = ["--proc", place]
    for name in ("sys", "sysrq-trigger"):
        if os.geteuid() == 0 and os.path.exists(f"/proc/{name}"):
            arguments += ["--ro-bind", f"/proc/{name}", f"{place}/{name}"]
    return arguments


def _proc(world, run_dir):
    proc_readings = [path[6:] for path in world.readings if path.startswith("/proc/")]
    if not world.proc and not proc_readings:
        return _real_proc("/proc")
    make_proc(run_dir / "proc", world.proc, proc_readings)
    return [*_real_proc(_HIDDEN_PROC), "--ro-bind", str(run_dir / "proc"), "/proc"]


def _recording(place, world, run_dir):
    if not world.absent_libraries:
        return ["--ro-bind", str(place.recording), "/recording"]
    chosen = run_dir / "recording"
    chosen.mkdir()
    for library in place.recording.glob("lib*.so"):
        if library.name[3:-3] not in world.absent_libraries:
            (chosen / library.name).symlink_to(f"/.gateway/recording/{library.name}")
    return ["--ro-bind", str(place.recording), "/.gateway/recording",
            "--ro-bind", str(chosen), "/recording"]


def arguments(place, world, root, base_dir, run_dir):
    """All mounts of a gateway, as arguments of bwrap. The root itself is a read-only file system in
    memory: nothing is mounted below `root` or `run_dir`, which makes them quick to remove."""
    found = _own_files(root)
    for name in ("bin", "sbin", "usr"):
        found += ["--ro-bind", str(base_dir / name), f"/{name}"]
    found += _libraries(None if place.qemu else place.lib_root)
    found += _changed_directories(world, base_dir, run_dir)
    found += _programs(place)
    found += ["--dev", "/dev", "--dev-bind-try", "/dev/net/tun", "/dev/net/tun"]
    found += _proc(world, run_dir)
    found += ["--ro-bind", str(place.platform), "/platform"]
    found += _recording(place, world, run_dir)
    found += ["--ro-bind", str(place.helpers), base.HELPERS]
    found += ["--bind", str(run_dir), "/.gateway/run"]
    if place.counters:
        found += ["--bind", str(place.counters), COUNTERS]
    if place.qemu:
        found += ["--ro-bind", str(place.qemu), "/.gateway/qemu"]
        if place.lib_root:
            found += ["--ro-bind", str(place.lib_root), "/.gateway/sysroot"]
    return [*found, "--remount-ro", "/"]
