"""cpectl-platform-check against the stock libraries and against libraries that are not right."""
import os
import pathlib
import re
import shutil
import subprocess

import pytest

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
RELEASE = ROOT / "build/release"
PROGRAM = pathlib.Path(os.environ.get(
    "CPECTL_PLATFORM_CHECK", RELEASE / "tools/platform_check/cpectl-platform-check"))
STOCK = pathlib.Path(os.environ.get("CPECTL_PLATFORM_DIR", RELEASE / "substitutes"))

LIBRARIES = ["nvram", "mvram", "netlink", "hostsort", "wum"]

# library, fault of tests/platform_check/vendor.c, what is said about it
FAULTS = [
    ("nvram", "static_buffer", "the text of one key changes when another key is read"),
    ("nvram", "one_text_a_key", "changes when its key is set"),
    ("nvram", "commit_fails", "a commit gives -1"),
    ("nvram", "commit_forgets", "a commit changes a value"),
    ("nvram", "set_fails", "a plain value cannot be set: the call gives -1 (No space left"),
    ("nvram", "set_gives_1", "setting a plain value gives 1"),
    ("nvram", "set_is_lost", "a plain value was set and is not there"),
    ("nvram", "not_shared", "another process does not see a value"),
    ("nvram", "cut_at_64", "a value of 1000 bytes was set and comes back changed"),
    ("nvram", "no_newline", "a value with a line end was set and comes back changed"),
    ("nvram", "absent_is_empty", "an absent key gives a text of 0 bytes instead of null"),
    ("nvram", "prints", "it prints on standard output"),
    ("nvram", "crashes", "it crashed (Segmentation fault, while reading a key that is absent)"),
    ("nvram", "exits", "it ended the process (status 3, while reading a key that is absent)"),
    ("nvram", "hangs", "no end within 1 s (reading a key that is absent)"),
    ("nvram", "lacks_commit", "nvram_commit is missing"),
    ("nvram", "lacks_a_need", "undefined symbol: vendor_helper"),
    ("mvram", "static_buffer", "the text of one key changes when another key is read"),
    ("mvram", "not_shared", "another process does not see a value"),
    ("mvram", "set_fails", "a plain value cannot be set"),
    ("hostsort", "shifted", "bytes cannot be: the layout"),
    ("hostsort", "unterminated", "the address is not ended within its 40 bytes"),
    ("hostsort", "too_long", "writes beyond the record's 72 bytes"),
    ("hostsort", "unfilled", "up_rate (at byte 60) is not filled in"),
    ("hostsort", "wide_rates", "a rate without a total cannot be"),
    ("hostsort", "negative_total", "hostsort_get_total_entry gives -1 hosts"),
    ("hostsort", "huge_total", "hostsort_get_total_entry gives 1000000 hosts"),
    ("hostsort", "unreadable", "host 1 is counted, but cannot be read"),
    ("hostsort", "behind", "there is a host behind the last one (4)"),
    ("hostsort", "sort_fails", "hostsort_info_sort(1, 0) fails: it gives -1"),
    ("hostsort", "binary_ip", "is no IPv4 address"),
    ("wum", "shifted", "station 1: \"19192.168.1.20\" is no IPv4 address"),
    ("wum", "endless", "the list does not end"),
    ("wum", "wild_pointer", "station 3 lies where no memory is"),
    ("wum", "early_next", "station 2 lies where no memory is"),
    ("wum", "endless_ssid", "has 146 bytes without an end"),
    ("netlink", "shifted", "is none of WAN1 to WAN4"),
    ("netlink", "no_callback", "the callback was not called"),
    ("netlink", "twice", "the callback was called 2 times"),
    ("netlink", "many", "the reply counts 100 links"),
    ("netlink", "short_reply", "the reply counts 4 links and is shorter"),
    ("netlink", "other_name", "link 2: \"eth1\" is none of WAN1 to WAN4"),
    ("netlink", "same_name", "WAN1 comes twice"),
    ("netlink", "unended_name", "link 1: the name is not ended within its 32 bytes"),
    ("netlink", "negative_rate", "rates of 8000 and -4000 bits per second cannot be"),
    ("netlink", "send_fails", "the request cannot be sent"),
    ("netlink", "regist_fails", "the channel cannot be opened"),
    ("netlink", "receive_fails", "no reply comes"),
    ("netlink", "no_reply", "the callback gets no reply"),
    ("netlink", "hangs", "no end within 1 s (receiving the reply)"),
]
# Faults that change what the library is compiled to, not what it does.
DEFINES = {"lacks_commit": ["-DWITHOUT_COMMIT"], "lacks_a_need": ["-DWITH_A_NEED"]}


def make_library(folder, name, fault="none"):
    subprocess.run(
        ["cc", "-shared", "-fPIC", "-g", "-w", "-D_GNU_SOURCE", f"-DLIBRARY_{name}",
         f"-DFAULT={fault}", *DEFINES.get(fault, []), f"-I{ROOT}/include", HERE / "vendor.c",
         "-o", folder / f"lib{name}.so"], check=True)


class Device:
    """A folder of libraries, the stores' folders, and the program run with them."""

    def __init__(self, folder):
        self.libraries = folder / "lib"
        self.store = folder / "store"
        self.run_dir = folder / "run"
        self.flash = folder / "flash"
        for path in (self.libraries, self.store, self.run_dir, self.flash):
            path.mkdir()

    def check(self, *arguments, libraries=None):
        environment = {"PATH": "/usr/bin:/bin", "LD_LIBRARY_PATH": str(libraries or self.libraries),
                       "VENDOR_STORE": str(self.store), "CPECTL_RUN_DIR": str(self.run_dir),
                       "CPECTL_FLASH_DIR": str(self.flash)}
        return subprocess.run([PROGRAM, *arguments], env=environment, capture_output=True,
                              text=True, timeout=60, check=False)

    def set(self, **values):
        for name, value in values.items():
            (self.store / name).write_text(value)


@pytest.fixture
def device(tmp_path):
    if not PROGRAM.exists():
        pytest.exit(f"{PROGRAM} is not there: build first, or set CPECTL_PLATFORM_CHECK", 2)
    made = Device(tmp_path)
    made.set(HOSTNAME="gateway", PRODUCT_TYPE="QRX300", LAN_IP="192.168.1.1")
    return made


def wrong_lines(result):
    return [line for line in result.stdout.splitlines() if line.startswith("  WRONG")]


def test_a_vendor_s_libraries_without_fault(device):
    for name in LIBRARIES:
        make_library(device.libraries, name)
    result = device.check()
    assert (result.returncode, result.stderr, wrong_lines(result)) == (0, "", [])
    assert result.stdout.count("all of its calls are there") == 5
    for said in ("the texts of 3 keys stay", "3 hosts, all", "3 stations, all", "2 links, all",
                 "another process sees a value at once", "a commit succeeds",
                 "values of all kinds come back", "Nothing looks wrong."):
        assert said in result.stdout
    assert f"loaded from {device.libraries}/libwum.so" in result.stdout


@pytest.mark.parametrize("library, fault, said", FAULTS,
                         ids=[f"{library}-{fault}" for library, fault, _ in FAULTS])
def test_a_fault_is_named(device, library, fault, said):
    make_library(device.libraries, library, fault)
    result = device.check("--wait", "1" if fault == "hangs" else "20", library)
    assert result.returncode == 1
    assert any(said in line for line in wrong_lines(result)), result.stdout
    assert re.search(r"^(1 thing looks|\d+ things look) wrong\.$", result.stdout, re.MULTILINE)


def test_a_number_that_looks_like_what_was_there_before(device):
    """A rate whose bytes are those that the record was filled with is a rate."""
    make_library(device.libraries, "hostsort", "odd_rate")
    result = device.check("hostsort")
    assert (result.returncode, wrong_lines(result)) == (0, [])


def test_the_end_counts_the_lines(device):
    make_library(device.libraries, "nvram", "set_gives_1")
    result = device.check("nvram")
    count = len(wrong_lines(result))
    assert count > 1 and f"\n{count} things look wrong.\n" in result.stdout


def test_one_faulty_library_leaves_the_others_checked(device):
    for name in LIBRARIES:
        make_library(device.libraries, name, "crashes" if name == "nvram" else "none")
    result = device.check()
    assert result.returncode == 1
    assert len(wrong_lines(result)) == 1
    assert "3 stations, all" in result.stdout


def test_a_library_that_is_not_there(device):
    result = device.check("wum")
    assert result.returncode == 1
    assert "cannot be loaded: libwum.so: cannot open shared object file" in result.stdout
    assert len(wrong_lines(result)) == 1


def test_a_preloaded_library_counts_as_for_cpectl(device):
    make_library(device.libraries, "wum")
    environment = {"LD_PRELOAD": str(device.libraries / "libwum.so")}
    result = subprocess.run([PROGRAM, "wum"], env=environment, capture_output=True, text=True,
                            timeout=60, check=False)
    assert (result.returncode, wrong_lines(result)) == (0, [])


def test_the_scratch_key_ends_as_it_began(device):
    device.set(CPECTL_PLATFORM_CHECK="kept")
    for name in ("nvram", "mvram"):
        make_library(device.libraries, name)
    before = {path.name: path.read_text() for path in device.store.iterdir()}
    result = device.check("nvram", "mvram")
    assert result.returncode == 0
    assert {path.name: path.read_text() for path in device.store.iterdir()} == before
    assert "is left as it was" in result.stdout


def test_stock_stores_end_with_an_empty_scratch_key(device):
    result = device.check("nvram", "mvram", libraries=STOCK)
    assert (result.returncode, wrong_lines(result)) == (0, [])
    assert "is left with an empty value" in result.stdout
    for path in (device.run_dir / "nvram", device.run_dir / "mvram", device.flash / "nvram"):
        assert path.read_text() == "CPECTL_PLATFORM_CHECK=\n"


def test_stock_stores_again(device):
    """What an earlier check left does not count as an absent key."""
    for _ in range(2):
        assert device.check("nvram", "mvram", libraries=STOCK).returncode == 0


def test_stock_store_whose_flash_is_missing(device):
    shutil.rmtree(device.flash)
    result = device.check("nvram", libraries=STOCK)
    assert result.returncode == 1
    assert "a commit gives -1 (No such file or directory)" in result.stdout


def test_read_only_writes_nothing(device):
    result = device.check("--read-only", "nvram", "mvram", libraries=STOCK)
    assert (result.returncode, wrong_lines(result)) == (0, [])
    assert result.stdout.count("not tried (--read-only)") == 2
    assert list(device.run_dir.iterdir()) == [] and list(device.flash.iterdir()) == []


def test_stock_libraries_in_a_busy_office(tmp_path):
    """Everything at once, in the emulated gateway with hosts and traffic."""
    state = tmp_path / "state"
    sim = [ROOT / "gateway/cpectl-sim", "--state", state]
    made = subprocess.run([*sim, "--scenario", "busy-office", "getBaseInfo"], capture_output=True,
                          text=True, timeout=120, check=False)
    if made.returncode == 125:
        pytest.skip(f"no emulated gateway can be run here: {made.stderr.strip()}")
    shutil.copy(PROGRAM, state / "root/tmp/check")
    result = subprocess.run(
        [*sim, "--platform", STOCK, "--shell", "-c", "LD_LIBRARY_PATH=/platform /tmp/check"],
        capture_output=True, text=True, timeout=120, check=False)
    assert (result.returncode, wrong_lines(result)) == (0, []), result.stdout + result.stderr
    assert "5 hosts, all with plausible records" in result.stdout
    assert "links, all with plausible entries" in result.stdout


@pytest.mark.parametrize("arguments", [
    ["--verbose"], ["curl"], ["--wait"], ["--wait", "0"], ["--wait", "601"], ["--wait", "5s"],
    ["--wait", ""], ["nvram", "--help"], [""]])
def test_wrong_use(device, arguments):
    result = device.check(*arguments)
    assert (result.returncode, result.stdout) == (2, "")
    assert result.stderr.startswith("usage: cpectl-platform-check ")


@pytest.mark.parametrize("word", ["-h", "--help"])
def test_help(device, word):
    result = device.check(word)
    assert (result.returncode, result.stderr) == (0, "")
    assert result.stdout.startswith("usage: cpectl-platform-check ")
