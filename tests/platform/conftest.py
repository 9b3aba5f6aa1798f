"""A gateway with real traffic, in namespaces, and the platform libraries working on it."""
import json
import os
import pathlib
import subprocess
import tempfile
import time

import pytest

import kept
import network as office

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
BUILD = ROOT / "build"


def platform_folders():
    """The folders of the libraries under test: the release, and the sanitized ones when built."""
    given = os.environ.get("CPECTL_PLATFORM_DIR")
    if given:
        return [pathlib.Path(given).resolve()]
    release, sanitized = (BUILD / name / "substitutes" for name in ("release", "asan"))
    return [release, *([sanitized] if (sanitized / "libwum.so").exists() else [])]


def pytest_collection_modifyitems(items):
    first = platform_folders()[0]

    def wanted(item):
        folder = item.callspec.params.get("platform", first) if hasattr(item, "callspec") else first
        return folder == first or item.get_closest_marker("texts")
    items[:] = filter(wanted, items)


def program_path():
    return pathlib.Path(os.environ.get("CPECTL_PROGRAM", BUILD / "cpectl"))


@pytest.fixture(scope="session", params=platform_folders(),
                ids=lambda folder: folder.parent.name)
def platform(request):
    if not (request.param / "libwum.so").exists():
        pytest.exit(f"{request.param} holds no libwum.so: build it, or set CPECTL_PLATFORM_DIR", 2)
    return request.param


@pytest.fixture(scope="session")
def driver(tmp_path_factory, platform):
    path = tmp_path_factory.mktemp("driver") / "driver"
    listing = subprocess.run(["readelf", "-d", platform / "libwum.so"], check=True,
                             stdout=subprocess.PIPE, text=True).stdout
    sanitizer = ["-fsanitize=address,undefined"] if "libasan" in listing else []
    subprocess.run(["cc", "-O1", "-g", "-Wall", "-D_GNU_SOURCE", *sanitizer, f"-I{ROOT}/include",
                    HERE / "driver.c", "-o", path, "-ldl"], check=True)
    return path


@pytest.fixture(scope="session")
def network():
    try:
        made = office.Network()
    except office.Unavailable as why:
        pytest.skip(f"no network namespaces like these can be made here: {why}")
    yield made
    made.close()


class Gateway:
    """The libraries and the program on one gateway, with a run-time folder of their own."""

    def __init__(self, place, platform, driver, folder):
        self.place = place
        self.platform = platform
        self.driver = driver
        self.run_folder = folder / "run"
        self.hostapd_folder = folder / "hostapd"
        self.hostapd_folder.mkdir()
        self.more_environment = {}

    def environment(self):
        return {"PATH": os.environ["PATH"], "LD_LIBRARY_PATH": str(self.platform),
                "CPECTL_RUN_DIR": str(self.run_folder),
                "CPECTL_FLASH_DIR": str(self.run_folder.parent),
                "CPECTL_HOSTAPD_DIR": str(self.hostapd_folder), **self.more_environment}

    def start(self, *command):
        return subprocess.Popen(self.place.enter(*command), env=self.environment(),
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def finish(self, process):
        """Its output, one JSON text a line."""
        output, errors = process.communicate(timeout=60)
        assert process.returncode == 0 and errors == "", (process.returncode, errors)
        return [json.loads(line) for line in output.splitlines()]

    def start_calls(self, *steps):
        return self.start(self.driver, *steps)

    def calls(self, *steps):
        """Calls into the libraries; what each of them says. See driver.c."""
        return self.finish(self.start_calls(*steps))

    def call(self, *steps):
        answer, = self.calls(*steps)
        return answer

    def timed_call(self, *steps):
        begin = time.monotonic()
        answer = self.call(*steps)
        return answer, time.monotonic() - begin

    def hosts(self):
        """The hosts by address, in their order, a second after they were asked for last."""
        last = self.run_folder / "host-traffic"
        if last.exists():
            kept.age(last, kept.HOST_HEAD, 1)
        answer = self.call("hosts")
        assert answer["sorted"] == 0
        return {host["ip"]: host for host in answer["hosts"]}

    def wan(self, *options):
        """The links' rates by name, in their order."""
        answer = self.call("wan", *options)
        assert answer["count"] == len(answer["links"])
        return {link["name"]: link for link in answer["links"]}

    def store(self, **values):
        """Sets keys of the second store."""
        self.run_folder.mkdir(mode=0o700, exist_ok=True)
        lines = "".join(f"{key}={value}\n" for key, value in values.items())
        (self.run_folder / "mvram").write_text(lines)

    def command(self, name, arguments=None):
        """What the program answers to a request."""
        words = [name] if arguments is None else [name, json.dumps(arguments)]
        # The program frees nothing before it ends.
        self.more_environment["ASAN_OPTIONS"] = "detect_leaks=0"
        answer, = self.finish(self.start(program_path(), *words))
        return answer


@pytest.fixture
def gateway(network, platform, driver, tmp_path):
    # In memory, as on a gateway; the names of sockets have to be short.
    in_memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else tmp_path
    with tempfile.TemporaryDirectory(prefix="office.", dir=in_memory) as folder:
        yield Gateway(network.gateway, platform, driver, pathlib.Path(folder))


@pytest.fixture
def program():
    if not program_path().exists():
        pytest.exit(f"there is no {program_path()}: build first, or set CPECTL_PROGRAM", 2)
