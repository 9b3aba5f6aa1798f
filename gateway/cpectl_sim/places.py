"""Where the parts are that the gateway is put together from."""

import os
from dataclasses import dataclass, replace
from pathlib import Path

from . import GatewayError

HERE = Path(__file__).resolve().parent
GATEWAY = HERE.parent  # factory/, scenarios/
PROJECT = GATEWAY.parent
IN_PROJECT = (PROJECT / "CMakePresets.json").exists()
_INSTALLED = Path("/usr/lib/cpectl-sim")


@dataclass(frozen=True)
class Places:
    program: Path    # the cpectl to run
    platform: Path   # the stock libraries
    nvram: Path      # the nvram tool
    helpers: Path    # gateway-sh, gateway-init, recorder
    recording: Path  # the recording libraries
    lib_root: Path = None  # a system root whose libraries the program uses
    qemu: Path = None      # a static qemu-user program that runs the program
    counters: Path = None  # the build folder of a program that counts its lines, for the counts

    def with_program(self, program):
        return replace(self, program=Path(program).resolve())


def _found(what, candidates):
    for path in candidates:
        if path and Path(path).exists():
            return Path(path).resolve()
    tried = ", ".join(str(path) for path in candidates if path)
    hint = "build first with './dev build'" if IN_PROJECT else "install the package again"
    raise GatewayError(f"no {what} (looked at {tried}): {hint}")


def find(program=None, platform=None, helpers=None, recording=None, lib_root=None, qemu=None):
    """The parts as given, else as the environment names them, else those of the build, else the
    installed ones. GatewayError when something is missing."""
    env = os.environ.get
    release = PROJECT / "build/release"

    def choose(what, given, variable, built, installed):
        named = given or env(variable)
        candidates = [named] if named else [built if IN_PROJECT else None, installed]
        return _found(what, candidates)

    helpers = choose("gateway helpers", helpers, "CPECTL_SIM_HELPERS", release / "gateway",
                     _INSTALLED)
    tools = release / "substitutes/nvram", _INSTALLED / "platform/nvram"
    if platform and not qemu:
        tools = Path(platform) / "nvram", *tools
    return Places(
        program=choose("cpectl", program, "CPECTL_SIM_PROGRAM", PROJECT / "build/cpectl",
                       "/usr/sbin/cpectl"),
        platform=choose("platform libraries", platform, "CPECTL_SIM_PLATFORM",
                        release / "substitutes", _INSTALLED / "platform"),
        nvram=_found("nvram tool", tools),
        helpers=helpers,
        recording=_found("recording libraries", [recording or helpers / "recording"]),
        lib_root=lib_root and _found("library root", [lib_root]),
        qemu=qemu and _found("qemu", [qemu]),
        counters=env("CPECTL_SIM_COUNTERS") and _found("counters", [env("CPECTL_SIM_COUNTERS")]),
    )


def state_default():
    """The state directory of somebody who names none."""
    if IN_PROJECT:
        return PROJECT / "build/gateway"
    home = os.environ.get("XDG_STATE_HOME") or os.path.expanduser("~/.local/state")
    return Path(home) / "cpectl-sim"
