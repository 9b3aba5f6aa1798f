"""Makes the gateway that the world sections of a case or scenario describe.

Files and stores are written into the gateway's root at once; what concerns a run (scripts, network,
answers of the libraries, files of /proc) is collected in a World.
"""

import os
import shutil
from dataclasses import dataclass, field
from pathlib import Path

from . import GatewayError, base, case, mounts, places, store, text

ROOT_DIRS = ["etc", "disk/conf", "root", "sys", "tmp", "var/run"]

# The calls of each library, for [library NAME fails].
LIBRARY_CALLS = {
    "nvram": ["nvram_get", "nvram_set", "nvram_commit"],
    "mvram": ["mvram_get", "mvram_set"],
    "netlink": ["user_netlink_regist", "netlink_send_user", "netlink_receive_user"],
    "hostsort": ["hostsort_info_sort", "hostsort_get_total_entry", "hostsort_get_next"],
    "wum": ["Web_STAinfo_Get", "WUMWTPKickoutSta"],
}

LAN_DEVICE = "eth0.5"
_LAN_LINES = [
    f"link add {LAN_DEVICE} type veth peer name lan-far-end",
    f"address add 192.168.1.1/24 dev {LAN_DEVICE}",
    f"link set {LAN_DEVICE} up",
    "link set lan-far-end up",
]


@dataclass
class World:
    scripts: list = field(default_factory=list)     # (path, words, steps of the recorder)
    script_texts: dict = field(default_factory=dict)  # path: text
    programs: dict = field(default_factory=dict)    # path in a program directory: bytes, None: gone
    proc: dict = field(default_factory=dict)        # path below /proc: bytes, or None: not there
    readings: dict = field(default_factory=dict)    # path: {number: bytes}
    net: list = field(default_factory=list)
    start: list = field(default_factory=list)       # commands to run before the program
    neighbours: list = None
    hosts: list = None     # lines of the run's file "hosts"
    stations: list = None
    wan: list = None
    fails: list = field(default_factory=list)
    absent_libraries: set = field(default_factory=set)
    http: list = field(default_factory=list)        # (port, status, delay, path, body)
    env: dict = field(default_factory=dict)
    output: str = None
    seconds: int = 60             # for the program, in tests
    background_seconds: int = 10  # for what it leaves behind

    def net_lines(self):
        """The whole batch for the ip tool."""
        lines = list(self.net)
        if self.neighbours is None:
            return lines
        if not any(LAN_DEVICE in line.split() for line in self.net):
            lines += _LAN_LINES
        for ip, mac, device in self.neighbours:
            lines.append(f"neighbour replace {ip} lladdr {mac} dev {device} nud permanent")
        return lines


def make_root(root):
    """An empty gateway in a new directory."""
    root = Path(root)
    for path in ROOT_DIRS:
        (root / path).mkdir(parents=True, exist_ok=True)
    (root / "tmp").chmod(0o1777)
    return root


def reboot(root):
    """What a restart of the gateway does to its files."""
    for directory in ("tmp", "var/run"):
        for path in (Path(root) / directory).iterdir():
            if path.is_dir() and not path.is_symlink():
                shutil.rmtree(path)
            else:
                path.unlink()


def in_program_dir(path):
    return path.rpartition("/")[0] in base.PROGRAM_DIRS


# ---- sections, one function each: (section, world, root or None)

def _place(root, path):
    """Where a path of the gateway is on this machine, its directory made."""
    if not path.startswith("/") or "/../" in path:
        raise ValueError(f"not an absolute path: {path}")
    if path.split("/")[1] in mounts.FIXED:
        raise ValueError(f"nothing can be put at {path}")
    place = root / path[1:]
    place.parent.mkdir(parents=True, exist_ok=True)
    return place


def _remove(place):
    if place.is_dir() and not place.is_symlink():
        shutil.rmtree(place)
    elif place.exists() or place.is_symlink():
        place.unlink()


def _set_mode(place, named):
    if "mode" in named:
        place.chmod(int(named["mode"], 8))


def _file(section, world, root):
    plain, named = section.options()
    path = plain[0]
    content = text.to_bytes(section.raw() if plain[1:] == ["raw"] else section.content())
    if path.startswith("/proc/"):
        world.proc[path[6:]] = content
    elif in_program_dir(path):
        world.programs[path] = content
    elif root:
        place = _place(root, path)
        _remove(place)
        place.write_bytes(content)
        _set_mode(place, named)


def _dir(section, world, root):
    if not root:
        return
    plain, named = section.options()
    place = _place(root, plain[0])
    if not place.is_dir():
        _remove(place)
        place.mkdir()
    _set_mode(place, named)


def _symlink(section, world, root):
    if not root:
        return
    place = _place(root, section.words[0])
    _remove(place)
    place.symlink_to(text.value(section.lines[0]))


def _fifo(section, world, root):
    if not root:
        return
    place = _place(root, section.words[0])
    _remove(place)
    os.mkfifo(place)


def _absent(section, world, root):
    path = section.words[0]
    if path.startswith("/proc/"):
        world.proc[path[6:]] = None
    elif in_program_dir(path):
        world.programs[path] = None
    elif root:
        _remove(root / path[1:])


def _reading(section, world, root):
    plain, _ = section.options()
    content = section.raw() if plain[2:] == ["raw"] else section.content()
    world.readings.setdefault(plain[0], {})[int(plain[1])] = text.to_bytes(content)


def _script_step(line):
    """A step of a script, as the recorder reads it."""
    verb, _, rest = line.partition(" ")
    rest = rest.strip(" ")
    if verb == "print":
        return f"out {text.to_bytes(text.value(rest) + chr(10)).hex()}"
    if verb == "print-raw":
        return f"out {text.to_bytes(text.from_json(rest)).hex() or '-'}"
    if verb == "error":
        return f"err {text.to_bytes(text.value(rest) + chr(10)).hex()}"
    if verb == "sleep":
        return f"sleep {round(float(rest) * 1000)}"
    if verb == "await-end":
        return f"await {round(float(rest) * 1000)}"
    if verb == "exit":
        return f"exit {int(rest)}"
    raise ValueError(f"no such step: {line}")


def _script(section, world, root):
    path, *words = section.words
    world.scripts.append((path, words, [_script_step(line) for line in section.lines]))
    _put_recorder(path, world, root)


def _script_text(section, world, root):
    path = section.words[0]
    world.script_texts[path] = section.content()
    _put_recorder(path, world, root)


def _put_recorder(path, world, root):
    if in_program_dir(path):
        world.programs.pop(path, None)
    elif root:
        place = _place(root, path)
        _remove(place)
        place.symlink_to(f"{base.HELPERS}/recorder")


def _store(section, world, root):
    if not root:
        return
    entries = {}
    for line in section.lines:
        key, equals, value = line.partition("=")
        if not equals:
            raise ValueError(f"not KEY=VALUE: {line}")
        entries[key] = text.value(value)
    if section.name == "nvram":
        # As after a start of the gateway: there is only the committed copy, unless requests ran
        # before or [committed] comes, too.
        committed = not (root / store.FILES["nvram"][0]).exists()
        name = "committed" if committed else "nvram"
        store.write(root, name, {**store.read(root, name), **entries})
    elif section.name == "committed":
        store.write(root, "nvram", store.read(root, "nvram"))
        store.write(root, "committed", entries)
    else:
        store.write(root, "mvram", {**store.read(root, "mvram"), **entries})


def _neighbours(section, world, root):
    world.neighbours = world.neighbours or []
    for line in section.lines:
        ip, mac, *device = line.split()
        world.neighbours.append((ip, mac, device[0] if device else LAN_DEVICE))


def _hex(part):
    return text.to_bytes(part).hex() or "-"


def _records(section, texts):
    """The lines of a table for the recording libraries; the first `texts` words are texts."""
    lines = []
    for line in section.lines:
        parts = text.words(line)
        lines.append(" ".join([*map(_hex, parts[:texts]), *parts[texts:]]))
    return lines


def _hosts(section, world, root):
    _, named = section.options()
    lines = ["fails" if line == "fails" else record
             for line, record in zip(section.lines, _records(section, 1))]
    world.hosts = [named.get("count", str(len(lines))), *lines]


def _stations(section, world, root):
    world.stations = _records(section, 2)


def _wan(section, world, root):
    plain, named = section.options()
    lines = _records(section, 1)
    first = "none" if plain == ["none"] else named.get("count", str(len(lines)))
    world.wan = [first, *lines]


def _library(section, world, root):
    name, what = section.words
    if name not in LIBRARY_CALLS or what not in ("absent", "fails"):
        raise ValueError("needs a library and 'absent' or 'fails'")
    if what == "absent":
        world.absent_libraries.add(name)
        return
    unknown = set(section.lines) - set(LIBRARY_CALLS[name])
    if unknown:
        raise ValueError(f"no such call: {', '.join(sorted(unknown))}")
    world.fails += section.lines or LIBRARY_CALLS[name]


def _http(section, world, root):
    plain, named = section.options()
    body = section.raw() if plain[1:] == ["raw"] else section.content()
    world.http.append((int(plain[0]), int(named.get("status", 200)),
                       round(float(named.get("delay", 0)) * 1000), named.get("path", "/"),
                       text.to_bytes(body)))


def _env(section, world, root):
    for line in section.lines:
        name, _, value = line.partition("=")
        world.env[name] = text.value(value)


def _net(section, world, root):
    world.net += section.lines


def _start(section, world, root):
    for line in section.lines:
        world.start.append(line if "/" in line.split()[0] else f"{base.HELPERS}/{line}")


def _output(section, world, root):
    if section.words not in (["closed"], ["full"], ["broken-pipe"]):
        raise ValueError("needs 'closed', 'full' or 'broken-pipe'")
    world.output = section.words[0]


def _seconds(section, world, root):
    world.seconds = int(section.lines[0])


def _world(section, world, root):
    """Starts from the factory image or from a scenario of gateway/scenarios/."""
    name = section.lines[0]
    if name == "factory":
        if root:
            shutil.copytree(places.GATEWAY / "factory/root", root, symlinks=True,
                            dirs_exist_ok=True)
        file = places.GATEWAY / "factory/world"
    else:
        file = places.GATEWAY / "scenarios" / name
    apply(case.load(file).steps[0].world, world, root)


_SECTIONS = {
    "world": _world, "nvram": _store, "committed": _store, "mvram": _store, "file": _file,
    "dir": _dir, "symlink": _symlink, "fifo": _fifo, "absent": _absent, "reading": _reading,
    "script": _script, "script-text": _script_text, "net": _net, "start": _start,
    "neighbours": _neighbours,
    "hosts": _hosts, "stations": _stations, "wan": _wan, "library": _library, "http": _http,
    "env": _env, "output": _output, "time-limit": _seconds,
}


# Whatever their order in the file: the base first, the committed copy after the running one.
_ORDER = {"world": 0, "committed": 2}


def apply(sections, world, root):
    """Changes the gateway in `root`, and `world`, as the sections say. Without a root only what
    concerns runs is taken over: the files are in their places."""
    for section in sorted(sections, key=lambda section: _ORDER.get(section.name, 1)):
        try:
            _SECTIONS[section.name](section, world, root)
        except GatewayError:
            raise
        except (ValueError, IndexError, OSError) as error:
            raise section.error(str(error)) from None
