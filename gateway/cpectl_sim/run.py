"""Runs a program in the gateway and collects what came of it."""

import os
import subprocess
from dataclasses import dataclass
from pathlib import Path

from . import GatewayError, base, mounts, text

_ENVIRONMENT = {
    "PATH": "/sbin:/bin:/usr/sbin:/usr/bin",
    "HOME": "/root",
    "LD_LIBRARY_PATH": "/recording",
    "CPECTL_RUN_DIR": "/var/run/cpectl",
    "CPECTL_FLASH_DIR": "/disk/conf",
    # The program leaves its memory to the system when it ends.
    "ASAN_OPTIONS": "detect_leaks=0",
    "UBSAN_OPTIONS": "print_stacktrace=1",
}

_NO_NAMESPACES = (
    "this user may not make the namespaces that the gateway runs in ({}): run it as root, or allow "
    "them with 'sysctl -w kernel.unprivileged_userns_clone=1 "
    "kernel.apparmor_restrict_unprivileged_userns=0' (whichever of the two exists)")

PROGRAM = "/usr/sbin/cpectl"


@dataclass
class Result:
    ending: str    # exit, signal or timeout
    status: int
    took: float    # seconds of the program itself
    lingering: bool  # something still ran when the time was over

    def exit_line(self):
        return str(self.status) if self.ending == "exit" else f"{self.ending} {self.status}"

    def shell_status(self):
        return {"exit": 0, "signal": 128, "timeout": 124}[self.ending] + self.status


def _write_lines(path, lines):
    if lines is not None:
        path.write_bytes(text.to_bytes("".join(line + "\n" for line in lines)))


def _write_scripts(world, run_dir):
    lines = []
    for path, words, steps in world.scripts:
        called = [path, *words]
        lines.append("call " + " ".join(text.to_bytes(word).hex() or "-" for word in called))
        lines += [*steps, "exit 0"]
    for number, (path, content) in enumerate(world.script_texts.items()):
        name = f"script-{number}"
        (run_dir / name).write_bytes(text.to_bytes(content))
        lines += ["call " + text.to_bytes(path).hex(), f"run {name.encode().hex()}"]
    if lines:
        _write_lines(run_dir / "scripts", lines)


def _write_readings(world, root, run_dir):
    """Makes the FIFOs outside /proc, and the list of what they are fed with."""
    lines = []
    for number, (path, readings) in enumerate(world.readings.items()):
        fifo = path
        if path.startswith("/proc/"):
            fifo = f"/.gateway/run{path}"
        else:
            place = root / path[1:]
            place.parent.mkdir(parents=True, exist_ok=True)
            place.unlink(missing_ok=True)
            os.mkfifo(place)
        names = []
        for reading in sorted(readings):
            names.append(f"reading-{number}-{reading}")
            (run_dir / names[-1]).write_bytes(readings[reading])
        lines.append(" ".join([fifo, *names]))
    if lines:
        _write_lines(run_dir / "feeds", lines)


def _write_http(world, run_dir):
    lines = []
    for number, (port, status, delay, path, body) in enumerate(world.http):
        name = f"answer-{number}"
        (run_dir / name).write_bytes(body)
        lines.append(f"{port} {status} {delay} {text.to_bytes(path).hex()} {name}")
    if lines:
        _write_lines(run_dir / "http", lines)


def _prepare(world, root, base_dir, run_dir):
    """Writes what the processes of the run read in its directory."""
    run_dir.mkdir(parents=True)
    (run_dir / "trace").touch()
    _write_scripts(world, run_dir)
    _write_readings(world, root, run_dir)
    _write_http(world, run_dir)
    _write_lines(run_dir / "hosts", world.hosts)
    _write_lines(run_dir / "stations", world.stations)
    _write_lines(run_dir / "wan", world.wan)
    _write_lines(run_dir / "net", world.net_lines() or None)
    _write_lines(run_dir / "start", world.start or None)
    _write_lines(run_dir / "fails", world.fails or None)
    functions = mounts.functions(world, base_dir)
    if functions:
        (run_dir / "functions").write_bytes(text.to_bytes(functions))


def _namespaces():
    arguments = ["--unshare-pid", "--unshare-net", "--unshare-ipc", "--unshare-uts", "--as-pid-1",
                 "--die-with-parent", "--hostname", "gateway", "--chdir", "/"]
    if os.geteuid() != 0:
        arguments += ["--unshare-user", "--uid", "0", "--gid", "0", "--cap-add", "ALL"]
    return arguments


def _counting(place):
    """Leads the counts of a program that counts its lines to its build folder."""
    if not place.counters:
        return {}
    return {"GCOV_PREFIX": mounts.COUNTERS,
            "GCOV_PREFIX_STRIP": str(len(place.counters.parts) - 1)}


def _qemu_options(place):
    options = ["-L", "/.gateway/sysroot"] if place.lib_root else []
    if (place.recording / mounts.QEMU_ARP).exists():
        options += ["-E", f"LD_PRELOAD=/recording/{mounts.QEMU_ARP}"]
    return options


def _read_result(run_dir, errors):
    """The result that the gateway's first process wrote; GatewayError when it did not come so
    far."""
    try:
        lines = [line.split() for line in (run_dir / "result").read_text().splitlines()]
    except FileNotFoundError:
        lines = []
    if len(lines) < 2:
        said = errors.strip().splitlines()
        said = said[-1] if said else "no reason given"
        if said.startswith("gateway-init: "):
            raise GatewayError(said[len("gateway-init: "):])
        raise GatewayError(_NO_NAMESPACES.format(said.removeprefix("bwrap: ")))
    return Result(lines[0][0], int(lines[0][1]), int(lines[1][1]) / 1e6, len(lines) > 2)


def run(place, world, root, base_dir, run_dir, program, *, live=False):
    """Runs `program` (path and arguments as the gateway sees them) in the gateway at `root`.

    `run_dir` is made new; afterwards it holds the trace and, unless `live`, the files "stdout" and
    "stderr". A live program has this process's input and output, and as much time as it likes.
    """
    _prepare(world, root, base_dir, run_dir)
    arguments = [base.host_tool("bwrap"), *_namespaces(),
                 *mounts.arguments(place, world, root, base_dir, run_dir),
                 "--", f"{base.HELPERS}/gateway-init"]
    arguments += ["-b", str(world.background_seconds)]
    keep = ()
    if world.output or not live:
        arguments += ["-o", world.output or "stdout"]
    if live:
        errors_to = os.dup(2)
        os.set_inheritable(errors_to, True)
        keep = (errors_to,)
        arguments += ["-e", f"@{errors_to}"]
    else:
        arguments += ["-e", "stderr", "-t", str(world.seconds)]
    if program[0] == PROGRAM and place.qemu:
        program = ["/.gateway/qemu", *_qemu_options(place), *program]
    arguments += ["--", *program]
    environment = {**_ENVIRONMENT, **_counting(place), **world.env}
    if "TERM" in os.environ:
        environment.setdefault("TERM", os.environ["TERM"])
    errors = Path(run_dir) / "launch-errors"
    with open(errors, "wb") as errors_file:
        subprocess.run(
            [text.to_bytes(argument) for argument in arguments], check=False, pass_fds=keep,
            env=environment, stdin=None if live else subprocess.DEVNULL,
            stdout=None if live else errors_file, stderr=errors_file)
    for number in keep:
        os.close(number)
    return _read_result(run_dir, errors.read_text("utf-8", "replace"))
