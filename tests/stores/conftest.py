"""A pair of empty store folders for each test, and the programs that work on them."""

import os
import pathlib
import shutil
import subprocess
import tempfile

import pytest

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
BUILD = ROOT / "build"


def platforms():
    """The folders of the libraries under test: the release, and the sanitized ones when built."""
    given = os.environ.get("CPECTL_PLATFORM_DIR")
    if given:
        return [pathlib.Path(given).resolve()]
    release, sanitized = (BUILD / name / "substitutes" for name in ("release", "asan"))
    return [release, *([sanitized] if (sanitized / "libnvram.so").exists() else [])]


class Programs:
    """What is under test, and the helpers compiled for it."""

    def __init__(self, platform, folder):
        self.platform = platform
        self.tool = platform / "nvram"
        self.driver = folder / "driver"
        self.faults = folder / "faults.so"
        self.sanitized = "libasan" in self.dynamic_section("libnvram.so")
        sanitizer = ["-fsanitize=address,undefined"] if self.sanitized else []
        compile_c = ["cc", "-O1", "-g", "-Wall", "-D_GNU_SOURCE"]
        subprocess.run([*compile_c, *sanitizer, HERE / "driver.c", "-o", self.driver, "-ldl",
                        "-pthread"], check=True)
        subprocess.run([*compile_c, "-shared", "-fPIC", HERE / "faults.c", "-o", self.faults,
                        "-ldl"], check=True)


    def dynamic_section(self, library):
        return subprocess.run(["readelf", "-d", self.platform / library], check=True,
                              stdout=subprocess.PIPE, text=True).stdout


@pytest.fixture(scope="session", params=platforms(), ids=lambda platform: platform.parent.name)
def programs(request, tmp_path_factory):
    platform = request.param
    if not (platform / "libnvram.so").exists():
        pytest.exit(f"{platform} holds no libnvram.so: build first, or set CPECTL_PLATFORM_DIR", 2)
    return Programs(platform, tmp_path_factory.mktemp("programs"))


class Library:
    """One of the two libraries in a process of its own that serves calls until it is closed."""

    def __init__(self, stores, prefix):
        self.process = subprocess.Popen(
            stores.driver_command(prefix, "serve"), env=stores.environment(),
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def call(self, command, *texts):
        words = ["-" if text is None else "=" + text.hex() for text in texts]
        self.process.stdin.write(" ".join([command, *words]).encode() + b"\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline()
        assert answer.endswith(b"\n"), "the library's process has died"
        return answer[:-1].decode()

    def get_with_address(self, key):
        answer = self.call("get", key)
        if answer == "-":
            return None, None
        address, _, value = answer.partition(" ")
        return address, bytes.fromhex(value)

    def get(self, key):
        return self.get_with_address(key)[1]

    def set(self, key, value):
        """The call's result and errno."""
        return tuple(map(int, self.call("set", key, value).split()))

    def commit(self):
        return tuple(map(int, self.call("commit").split()))

    def close(self):
        self.process.stdin.close()
        assert self.process.wait(timeout=60) == 0


class Stores:
    """The folders of one gateway's stores."""

    def __init__(self, folder, memory, programs):
        self.programs = programs
        self.folder = folder
        self.memory = memory
        self.run = memory / "run"
        self.flash = folder / "flash"
        self.flash.mkdir()
        self.running = self.run / "nvram"
        self.second = self.run / "mvram"
        self.committed = self.flash / "nvram"
        self.libraries = []

    def environment(self, **more):
        return {**os.environ, "CPECTL_RUN_DIR": str(self.run),
                "CPECTL_FLASH_DIR": str(self.flash), **more}

    def driver_command(self, prefix, *words):
        library = self.programs.platform / f"lib{prefix}.so"
        return [self.programs.driver, library, prefix, *map(str, words)]

    def library(self, prefix="nvram"):
        library = Library(self, prefix)
        self.libraries.append(library)
        return library

    def tool(self, *arguments, **options):
        return subprocess.run([self.programs.tool, *arguments], env=self.environment(),
                              stdout=options.pop("stdout", subprocess.PIPE),
                              stderr=subprocess.PIPE, check=False, timeout=60, **options)

    def faults_environment(self, at=0, do="", log=None, **more):
        return self.environment(
            LD_PRELOAD=str(self.programs.faults), FAULTS_AT=str(at), FAULTS_DO=str(do),
            ASAN_OPTIONS="verify_asan_link_order=0", **({"FAULTS_LOG": str(log)} if log else {}),
            **more)

    def tool_with_faults(self, *arguments, **faults):
        return subprocess.run([self.programs.tool, *arguments], check=False, timeout=60,
                              env=self.faults_environment(**faults),
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def tool_stopped(self, *arguments, call):
        """The tool, stopped just before its call `call`, in the world as it is."""
        before = {file: file.read_bytes() for file in (self.running, self.committed)}
        at = self.calls_of(*arguments).index(call) + 1
        for file, content in before.items():
            file.write_bytes(content)
        child = subprocess.Popen([self.programs.tool, *arguments],
                                 env=self.faults_environment(at=at, do="stop"))
        assert os.WIFSTOPPED(os.waitpid(child.pid, os.WUNTRACED)[1])
        return child

    def calls_of(self, *arguments, **more):
        """The file calls that the tool makes for a command: (call, path) in order."""
        log = self.folder / "calls"
        log.unlink(missing_ok=True)
        self.tool_with_faults(*arguments, log=log, **more)
        lines = log.read_text().splitlines() if log.exists() else []
        return [tuple(line.split(" ")[1:]) for line in lines]

    def write(self, path, content):
        path.parent.mkdir(exist_ok=True)
        path.write_bytes(content)

    def restart(self):
        """What a restart of the gateway leaves: the flash."""
        shutil.rmtree(self.run, ignore_errors=True)


@pytest.fixture
def stores(tmp_path, programs):
    # The run folder in memory, as on a gateway: the tests write more than a disk should bear.
    in_memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else tmp_path
    with tempfile.TemporaryDirectory(prefix="stores.", dir=in_memory) as memory:
        made = Stores(tmp_path, pathlib.Path(memory), programs)
        yield made
        for library in made.libraries:
            library.close()
