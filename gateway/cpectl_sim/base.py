"""The part of the gateway's root that no run changes: the userland and the stand-ins.

It is a directory of symbolic links, made once; what they lead to is mounted when the gateway runs.
"""

import os
import shutil
import subprocess
from pathlib import Path

from . import GatewayError

HELPERS = "/.gateway/helpers"
PROGRAMS_DIR = "/.gateway/programs"
BUSYBOX = "/bin/busybox"

# What is the gateway's own and gets recorded whenever it runs.
STAND_INS = [
    *(f"/usr/sbin/{name}" for name in (
        "ui.sh", "network.sh", "reboot.sh", "webserv.sh", "wireless_config.sh", "proxy_client.sh",
        "ipsec.sh", "pptp.sh", "cron.sh", "pushOTA.sh", "cpectlUpgrade.sh")),
    "/sbin/cpecryptpw",
    "/usr/bin/dd_flash",
    "/usr/local/sbin/ipsec",
]

# Programs of the host and of the build: mounted under their names in PROGRAMS_DIR.
PROGRAMS = {"busybox": BUSYBOX, "cpectl": "/usr/sbin/cpectl", "curl": "/usr/bin/curl",
            "ip": "/sbin/ip", "nvram": "/usr/sbin/nvram"}

# Directories of programs: what a case puts there or takes away changes a copy of the directory.
PROGRAM_DIRS = ["/bin", "/sbin", "/usr/bin", "/usr/sbin", "/usr/local/bin", "/usr/local/sbin"]

_COMPLETE = ".complete-3"  # counts up when the content below changes


def host_tool(name):
    """The path of a program of this machine that the gateway needs."""
    path = shutil.which(name, path="/usr/bin:/bin:/usr/sbin:/sbin")
    if not path:
        package = {"bwrap": "bubblewrap", "busybox": "busybox-static", "ip": "iproute2"}
        raise GatewayError(
            f"{name} is missing: install it with 'apt-get install {package.get(name, name)}'")
    return path


def applets():
    """The paths of the busybox tools."""
    listing = subprocess.run([host_tool("busybox"), "--list-full"], check=True,
                             capture_output=True, text=True).stdout
    return ["/" + path for path in listing.split() if "bin/" in path]


def ensure(directory):
    """Makes the fixed part in `directory` unless it is there already; returns its path."""
    directory = Path(directory)
    if (directory / _COMPLETE).exists():
        return directory
    # Made beside its place and moved there: several runs may do this at once.
    making = directory.with_name(f"{directory.name}.{os.getpid()}")
    shutil.rmtree(making, ignore_errors=True)
    for path in [*PROGRAM_DIRS, "/usr/lib", "/usr/lib64", "/usr/lib32"]:
        (making / path[1:]).mkdir(parents=True)
    links = {path: BUSYBOX for path in applets()}
    links.update((path, f"{HELPERS}/recorder") for path in STAND_INS)
    links["/bin/sh"] = f"{HELPERS}/gateway-sh"
    links.update((path, f"{PROGRAMS_DIR}/{name}") for name, path in PROGRAMS.items())
    for path, target in links.items():
        (making / path[1:]).symlink_to(target)
    (making / _COMPLETE).write_text("".join(sorted(path + "\n" for path in applets())))
    try:
        shutil.rmtree(directory, ignore_errors=True)
        making.rename(directory)
    except OSError:
        if not (directory / _COMPLETE).exists():
            raise
        shutil.rmtree(making, ignore_errors=True)
    return directory


def shell_builtins(directory):
    """The names that the gateway's shell runs itself, wherever PATH leads."""
    listing = (Path(directory) / _COMPLETE).read_text().split()
    return {path.rpartition("/")[2] for path in listing}
