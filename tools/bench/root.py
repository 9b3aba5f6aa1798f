"""The root in which everything is measured: a gateway with its libraries installed.

The stock libraries lie in the folder in which an installed cpectl looks for them, and the machine's
are found through the loader's cache: LD_LIBRARY_PATH would cost dozens of system calls a library.
The scripts of the gateway do nothing, the network is the root's own, and so are the stores, which
lie in memory, as on a gateway, and have not changed for a while.
"""
import os
import pathlib
import shutil
import subprocess
import tempfile
import time

import candidates

PROJECT = pathlib.Path(__file__).resolve().parents[2]
SOURCES = PROJECT / "tests" / "bench"
PLATFORM = PROJECT / "build" / "release" / "substitutes"
PROGRAM = PROJECT / "build" / "cpectl"
BUILD = PROJECT / "build" / "bench"

# name: (source, further words of the compiler, name of the result)
PROGRAMS = {
    "empty": ("empty.c", []),
    "empty_static": ("empty.c", ["-static"]),
    "cjson": ("cjson_linked.c", ["-lcjson"]),
    "shell_calls": ("shell_calls.c", []),
    "spawn_times": ("spawn_times.c", ["-static"]),
    "http_answer": ("http_answer.c", ["-static"]),
    "plain": ("plain_file.c", []),
    "loaded": ("stock_loaded.c", ["-Wl,-rpath,/usr/local/lib/cpectl"]),
    "linked": ("stock_linked.c", [f"-L{PLATFORM}", "-lnvram", "-Wl,-rpath,/usr/local/lib/cpectl"]),
    "sqlite": ("sqlite.c", ["-lsqlite3"]),
    "libhostsort.so": ("canned_hostsort.c", ["-shared", "-fPIC", "-Wl,-soname,libhostsort.so"]),
    "libwum.so": ("canned_wum.c", ["-shared", "-fPIC", "-Wl,-soname,libwum.so"]),
}

SCRIPTS = ["ui.sh", "network.sh", "reboot.sh", "webserv.sh", "ipsec.sh", "pptp.sh", "pushOTA.sh",
           "cpectlUpgrade.sh", "proxy_client.sh", "cron.sh"]
NEIGHBOURS = 1000
VALGRIND = pathlib.Path("/usr/libexec/valgrind")

# Runs before what is measured, inside.
ENTER = """\
#!/bin/sh
ip -batch /bench/files/net
/bench/http_answer /bench/files/answer || exit
exec "$@"
"""


def compile_programs(folder, without):
    for name, (source, words) in PROGRAMS.items():
        if name in without:
            continue
        subprocess.run(
            ["gcc", "-O2", "-Wall", "-D_GNU_SOURCE", f"-I{PROJECT}/include", f"-I{SOURCES}",
             SOURCES / source, "-o", folder / name, *words], check=True)


def write_script(path, text):
    path.write_text("#!/bin/sh\n" + text)
    path.chmod(0o755)


class Root:
    """The root, made anew in a folder of the build, and in memory until it is left; `without`
    some of PROGRAMS, when they are not needed."""

    def __init__(self, folder=BUILD, program=PROGRAM, without=()):
        self.folder = folder
        shutil.rmtree(folder, ignore_errors=True)
        for name in ("bench/files", "sbin", "local", "etc", "flash", "changing"):
            (folder / name).mkdir(parents=True)
        self.files = folder / "bench" / "files"
        compile_programs(folder / "bench", without)
        shutil.copy(program, folder / "bench" / "cpectl")
        shutil.copy(PLATFORM / "nvram", folder / "bench")
        self._install_libraries()
        (folder / "bench" / "enter").write_text(ENTER)
        (folder / "bench" / "enter").chmod(0o755)
        for name in SCRIPTS:
            write_script(folder / "sbin" / name, "exit 0\n")
        write_script(folder / "sbin" / "cpecryptpw", "echo ENC:0123456789abcdef\n")
        write_script(folder / "local" / "ipsec", "exec cat /tmp/status\n")
        self._link_valgrind()
        self._write_etc()
        self._write_network()
        candidates.write_files(self.files, [folder / "flash", folder / "changing"])
        self.memory = tempfile.TemporaryDirectory(prefix="cpectl-bench.", dir="/dev/shm")
        for name in ("cpectl", "changing"):
            run = pathlib.Path(self.memory.name) / name
            run.mkdir()
            for store in ("nvram", "mvram", "plain", "sqlite"):
                shutil.copy(self.files / store, run)

    def __enter__(self):
        time.sleep(3)  # What has just changed is read more often: it might change again.
        return self

    def __exit__(self, *_):
        self.memory.cleanup()

    def _install_libraries(self):
        """The stock libraries, and canned ones in the place of two that watch a real network."""
        (self.folder / "cpectl").mkdir()
        for name in ("libnvram.so", "libmvram.so", "libnetlink.so"):
            shutil.copy(PLATFORM / name, self.folder / "cpectl")
        for name in ("libhostsort.so", "libwum.so"):
            (self.folder / "bench" / name).rename(self.folder / "cpectl" / name)

    def _link_valgrind(self):
        """valgrind without what it would load into each program, which would be counted, too."""
        (self.folder / "bench" / "valgrind").mkdir()
        for path in VALGRIND.iterdir():
            if not path.name.startswith("vgpreload"):
                (self.folder / "bench" / "valgrind" / path.name).symlink_to(path)

    def _write_etc(self):
        etc = self.folder / "etc"
        (etc / "hosts").write_text("127.0.0.1 localhost ota.cpectl.example\n")
        (etc / "router.ver").write_text("SW_VERSION=V1.2.3 build\nSW_DATE=20260101\n")
        (etc / "nsswitch.conf").write_text("hosts: files\n")
        shutil.copy("/etc/ld.so.cache", etc)

    def _write_network(self):
        lines = ["link set lo up", "link add eth0.5 type veth peer name far",
                 "address add 10.0.0.254/8 dev eth0.5", "link set eth0.5 up", "link set far up"]
        for host in range(1, NEIGHBOURS + 1):
            lines.append(f"neighbour replace 10.0.{host // 250}.{host % 250 + 1} lladdr "
                         f"02:00:00:00:{host // 250:02x}:{host % 250:02x} dev eth0.5 nud permanent")
        (self.files / "net").write_text("".join(line + "\n" for line in lines))

    def _arguments(self):
        arguments = ["bwrap", "--unshare-pid", "--unshare-net", "--unshare-ipc", "--unshare-uts",
                     "--die-with-parent", "--clearenv", "--setenv", "PATH", "/usr/bin:/usr/sbin",
                     "--setenv", "BENCH_RUN_DIR", "/var/run/cpectl",
                     "--setenv", "BENCH_FLASH_DIR", "/disk/conf"]
        if os.geteuid() != 0:
            arguments += ["--unshare-user", "--uid", "0", "--gid", "0"]
        arguments += ["--cap-add", "ALL", "--ro-bind", "/usr", "/usr", "--tmpfs", "/usr/sbin",
                      "--tmpfs", "/usr/local/sbin", "--tmpfs", "/tmp",
                      "--bind", self.memory.name, "/var/run",
                      "--proc", "/proc", "--dev", "/dev",
                      "--ro-bind", str(self.folder / "etc"), "/etc",
                      "--bind", str(self.folder / "flash"), "/disk/conf",
                      "--bind", str(self.folder / "changing"), "/disk/changing",
                      "--tmpfs", "/usr/local/lib",
                      "--ro-bind", str(self.folder / "cpectl"), "/usr/local/lib/cpectl",
                      "--ro-bind", str(self.folder / "bench"), "/bench"]
        for name in ("bin", "sbin", "lib", "lib32", "lib64"):
            if os.path.islink(f"/{name}"):
                arguments += ["--symlink", f"usr/{name}", f"/{name}"]
        for place, target in (("sbin", "/usr/sbin"), ("local", "/usr/local/sbin")):
            for script in (self.folder / place).iterdir():
                arguments += ["--ro-bind", str(script), f"{target}/{script.name}"]
        arguments += ["--ro-bind", shutil.which("ip") or "/sbin/ip", "/usr/sbin/ip"]
        return arguments

    def run(self, command, **options):
        """Runs a command inside and gives what subprocess.run() does."""
        return subprocess.run(
            [*self._arguments(), "--", "/bench/enter", *map(str, command)], check=True, **options)
