"""The OpenWrt feed: its Makefile expanded by GNU make, and the packages that its recipes make, run
with the programs of a build with its options."""
import os
import pathlib
import re
import shutil
import subprocess
import sysconfig

import once
import pytest
from conftest import BUILD, ROOT, dynamic, files_of, run

FEED = ROOT / "package/openwrt/cpectl"
HERE = pathlib.Path(__file__).resolve().parent
UNSET = {"CONFIG_CPECTL_PLATFORM_STOCK": "", "CONFIG_CPECTL_WIRELESS": "",
         "CONFIG_CPECTL_OTA_HOST": '"ota.example"'}
STOCK = {**UNSET, "CONFIG_CPECTL_PLATFORM_STOCK": "y"}
VENDOR = UNSET


class Feed:
    """The feed's Makefile in a tree of stand-ins."""

    def __init__(self, folder, config):
        self.config = config
        self.stub = folder / "stub"
        self.stage = folder / "stage"
        self.installed = folder / "installed"

    def lay_out(self):
        self.stub.mkdir(parents=True)
        self.stage.mkdir()
        shutil.copy(HERE / "openwrt.mk", self.stub / "rules.mk")
        for name in ("package.mk", "cmake.mk"):
            (self.stub / name).touch()
        return self

    def make(self, target, folder=FEED, name=""):
        """Makes a target. A variable that nobody defines is an error: it is a slip of the pen."""
        values = {"TOPDIR": self.stub, "STUB": self.stub, "STAGE": self.stage, "NAME": name,
                  "PKG_INSTALL_DIR": self.installed, **self.config}
        done = subprocess.run(
            ["make", "--no-print-directory", "--warn-undefined-variables", "-C", str(folder),
             *(f"{key}={value}" for key, value in values.items()), target],
            capture_output=True, text=True, check=False)
        assert (done.returncode, done.stderr) == (0, "")
        return done.stdout

    def show(self, name):
        return self.make("show", name=name).strip()

    def build(self, folder):
        """Builds in a folder with the Makefile's options, and installs what was built."""
        options = re.findall(r"-D\S+", self.show("CMAKE_OPTIONS"))
        run("cmake", "-S", ROOT, "-B", folder, "-G", "Ninja", "-DCMAKE_INSTALL_PREFIX=/usr",
            *options)
        run("ninja", "-C", folder)
        run("cmake", "--install", folder, env={**os.environ, "DESTDIR": str(self.installed)})


def built(factory, name, config, *targets):
    """The feed of a configuration, built and put together once a run for all its processes. The
    folder of the build, one for each configuration, stays for the next run."""
    build = BUILD / f"package/openwrt-{name}"

    def make(folder):
        feed = Feed(folder, config).lay_out()
        with once.turn(build.with_name(build.name + ".lock")):  # another run may be at work there
            feed.build(build)
        for target in targets:
            feed.make(target)
    return Feed(once.folder(factory, f"openwrt-{name}", make), config)


@pytest.fixture(scope="session")
def vendor(tmp_path_factory):
    return built(tmp_path_factory, "vendor", VENDOR, "install-cpectl")


@pytest.fixture(scope="session")
def stock(tmp_path_factory):
    return built(tmp_path_factory, "stock", STOCK, "install-cpectl", "install-cpectl-platform",
                 "install-dev")


@pytest.fixture
def fields(tmp_path):
    return Feed(tmp_path, STOCK).lay_out()


def test_fields(fields):
    assert fields.show("PACKAGES").split() == ["cpectl", "cpectl-platform"]
    assert fields.show("PKG_LICENSE") == "MIT"
    assert (ROOT / fields.show("PKG_LICENSE_FILES")).is_file()
    for name in ("cpectl", "cpectl-platform"):
        assert fields.show(f"{name}-SECTION") and fields.show(f"{name}-CATEGORY")
        assert len(fields.show(f"{name}-TITLE")) <= 60


def test_versions_agree(fields):
    project = re.search(r"project\(cpectl VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())
    debian = re.match(r"cpectl \(([\d.]+)\)", (ROOT / "debian/changelog").read_text())
    assert fields.show("PKG_VERSION") == project[1] == debian[1]


def test_dependencies(fields):
    program = fields.show("cpectl-DEPENDS").split()
    assert program == ["+cJSON", "+CPECTL_PLATFORM_STOCK:cpectl-platform", "+CPECTL_TRANSFERS:curl"]
    platform = fields.show("cpectl-platform-DEPENDS").split()
    assert platform[0] == "@CPECTL_PLATFORM_STOCK"
    assert not [name for name in program + platform if "stdcpp" in name]


def test_choices_are_declared_and_lead_to_a_new_build(fields):
    used = set(re.findall(r"CONFIG_(CPECTL_\w+)", (FEED / "Makefile").read_text()))
    declared = set(re.findall(r"^config (\w+)", fields.show("Package/cpectl/config"), re.MULTILINE))
    assert used <= declared
    assert declared == {"CPECTL_PLATFORM_STOCK", "CPECTL_PLATFORM_VENDOR", "CPECTL_WIRELESS",
                        "CPECTL_TRANSFERS", "CPECTL_OTA_HOST"}
    assert {f"CONFIG_{name}" for name in used} == set(fields.show("PKG_CONFIG_DEPENDS").split())


@pytest.mark.parametrize("config, platform, wireless", [
    (STOCK, "ON", "OFF"), (VENDOR, "OFF", "OFF"), ({**STOCK, "CONFIG_CPECTL_WIRELESS": "y"},
                                                   "ON", "ON")])
def test_options(tmp_path, config, platform, wireless):
    options = Feed(tmp_path, config).lay_out().show("CMAKE_OPTIONS").split()
    assert f"-DCPECTL_PLATFORM_LIBS={platform}" in options
    assert f"-DCPECTL_WIRELESS_LIB={wireless}" in options
    assert "-DCPECTL_OTA_HOST=ota.example" in options
    known = (ROOT / "CMakeLists.txt").read_text()
    for option in re.findall(r"-D(CPECTL_\w+)", " ".join(options)):
        assert re.search(rf"(option|set)\({option} ", known), option


@pytest.mark.parametrize("name", ["cpectl", "cpectl-platform"])
def test_kept_files(fields, name):
    """What opkg leaves alone is what a sysupgrade keeps."""
    kept = (FEED / f"files/{name}.keep").read_text().splitlines()
    assert kept == fields.show(f"Package/{name}/conffiles").splitlines()
    sources = "".join(path.read_text() for folder in ("src", "substitutes")
                      for path in (ROOT / folder).rglob("*") if path.suffix in (".cpp", ".txt"))
    for path in kept:
        assert path in sources or path.rpartition("/")[0] in sources


def test_sources_are_the_tree_around_the_feed(fields):
    fields.make("prepare")
    copied = fields.stage / "build"
    assert (copied / "CMakeLists.txt").is_file() and (copied / "src/main/main.cpp").is_file()
    assert not (copied / "build").exists() and not (copied / ".git").exists()


def test_sources_are_those_in_a_packed_feed(fields, tmp_path):
    feed = tmp_path / "feed/cpectl"
    shutil.copytree(FEED, feed)
    (feed / "src").mkdir()
    (feed / "src/CMakeLists.txt").write_text("# packed\n")
    fields.make("prepare", feed)
    assert (fields.stage / "build/CMakeLists.txt").read_text() == "# packed\n"


def test_files_with_stock_libraries(stock):
    assert files_of(stock.stage / "cpectl") == [
        "/lib/upgrade/keep.d/cpectl", "/usr/sbin/cpectl", "/usr/sbin/cpectl-platform-check"]
    assert files_of(stock.stage / "cpectl-platform") == [
        "/lib/upgrade/keep.d/cpectl-platform", "/usr/lib/cpectl/libhostsort.so",
        "/usr/lib/cpectl/libmvram.so", "/usr/lib/cpectl/libnetlink.so",
        "/usr/lib/cpectl/libnvram.so", "/usr/sbin/nvram"]
    for name in ("cpectl", "cpectl-platform"):
        assert (stock.stage / name / "disk/conf").is_dir()
    assert "/usr/include/cpectl/wum.h" in files_of(stock.stage / "dev")


def test_where_the_programs_look(stock, vendor):
    """With stock libraries in their folder; with a vendor's nowhere but where the loader looks."""
    program = "cpectl/usr/sbin/cpectl"
    check = "cpectl/usr/sbin/cpectl-platform-check"
    for path in (program, check):
        assert b"/usr/lib/cpectl" in (stock.stage / path).read_bytes()
        assert b"/usr/lib/cpectl" not in (vendor.stage / path).read_bytes()
        assert dynamic(vendor.stage / path, "RUNPATH") == []
        assert dynamic(stock.stage / path, "RPATH") == []


def test_vendor_build_holds_no_libraries(vendor):
    assert not [path for path in files_of(vendor.installed)
                if path.endswith(".so") or path.endswith("nvram")]


def test_no_c_plus_plus_library(stock):
    for path in stock.stage.glob("cpectl*/usr/**/*"):
        if path.is_file():
            assert not [name for name in dynamic(path, "NEEDED") if "stdc++" in name]


class Root:
    """The packages unpacked into one root with busybox, as the device would have them. The loader
    and libc are this machine's."""

    LIBRARIES = f"/usr/lib/{sysconfig.get_config_var('MULTIARCH')}"

    def __init__(self, feed, folder, packages):
        self.folder = folder
        for name in packages:
            shutil.copytree(feed.stage / name, folder, dirs_exist_ok=True)
        for name in ("bin", "tmp", "var/run"):
            (folder / name).mkdir(parents=True, exist_ok=True)
        shutil.copy("/bin/busybox", folder / "bin/busybox")
        for name in ("sh", "grep", "cat", "cut"):
            (folder / "bin" / name).symlink_to("busybox")
        for name in ("test.sh", "test-version.sh"):
            shutil.copy(FEED / name, folder / "tmp")

    def run(self, *command):
        arguments = ["bwrap", "--bind", self.folder, "/", "--dev", "/dev", "--proc", "/proc",
                     "--ro-bind", self.LIBRARIES, self.LIBRARIES,
                     "--ro-bind", self.LIBRARIES, self.LIBRARIES.removeprefix("/usr")]
        for path in ("/lib64", "/lib/ld-linux-aarch64.so.1"):
            if pathlib.Path(path).exists():
                arguments += ["--ro-bind", path, path]
        return subprocess.run([*arguments, "--clearenv", "--setenv", "PATH", "/bin:/usr/sbin",
                               "--unshare-all", *command], capture_output=True, text=True,
                              check=False)

    def test(self, script, package):
        done = self.run("/bin/sh", f"/tmp/{script}", package, "1.0.0")
        return done.returncode, done.stdout + done.stderr


@pytest.fixture
def root(stock, tmp_path):
    made = Root(stock, tmp_path / "root", ["cpectl", "cpectl-platform"])
    tried = made.run("/bin/sh", "-c", "true")
    if tried.returncode != 0:
        pytest.skip(f"no namespaces can be made here: {tried.stderr.strip()}")
    return made


@pytest.mark.parametrize("script", ["test.sh", "test-version.sh"])
@pytest.mark.parametrize("package", ["cpectl", "cpectl-platform"])
def test_the_packages_pass_their_own_test(root, script, package):
    status, said = root.test(script, package)
    assert status == 0, said


def test_their_own_test_leaves_the_stores_as_they_were(root):
    root.run("/usr/sbin/nvram", "set", "HOSTNAME=gateway")
    assert root.test("test.sh", "cpectl-platform")[0] == 0
    assert root.run("/usr/sbin/nvram", "get", "HOSTNAME").stdout == "gateway\n"


@pytest.mark.parametrize("package, broken", [
    ("cpectl", "usr/sbin/cpectl"), ("cpectl", "usr/sbin/cpectl-platform-check"),
    ("cpectl-platform", "usr/lib/cpectl/libnvram.so"), ("cpectl-platform", "usr/sbin/nvram"),
    ("cpectl-platform", "usr/lib/cpectl/libmvram.so")])
def test_their_own_test_can_fail(root, package, broken):
    (root.folder / broken).unlink()
    assert root.test("test.sh", package)[0] == 1


@pytest.mark.parametrize("script", ["test.sh", "test-version.sh"])
def test_their_own_test_knows_its_packages(root, script):
    assert root.test(script, "curl")[0] == 1


def test_the_version_test_can_fail(root):
    (root.folder / "usr/sbin/cpectl").write_text("#!/bin/sh\necho 1.0.0\n")
    assert root.test("test-version.sh", "cpectl")[0] == 1


def test_without_libraries_of_either_kind(vendor, tmp_path):
    """The vendor's program on a device without them answers, with empty values."""
    root = Root(vendor, tmp_path / "root", ["cpectl"])
    if root.run("/bin/sh", "-c", "true").returncode != 0:
        pytest.skip("no namespaces can be made here")
    done = root.run("/usr/sbin/cpectl", "getAdmPass")
    assert done.stdout == '{"fun":"getAdmPass","stat":"ok","cbk":{"admPass":""}}\n'
    checked = root.run("/usr/sbin/cpectl-platform-check")
    assert checked.returncode == 1
    assert checked.stdout.count("cannot be loaded") == 5


def test_in_the_emulated_gateway(stock, tmp_path):
    """The package's program with the package's stores, on the factory image."""
    libraries = tmp_path / "platform"
    shutil.copytree(stock.stage / "cpectl-platform/usr/lib/cpectl", libraries)
    shutil.copy(stock.stage / "cpectl-platform/usr/sbin/nvram", libraries)
    done = subprocess.run(
        [ROOT / "gateway/cpectl-sim", "--state", tmp_path / "state", "--fresh", "--program",
         stock.stage / "cpectl/usr/sbin/cpectl", "--platform", libraries, "getBaseInfo"],
        capture_output=True, text=True, check=False)
    if done.returncode == 125:
        pytest.skip(f"no emulated gateway can be run here: {done.stderr.strip()}")
    assert done.stdout == ('{"fun":"getBaseInfo","stat":"ok","cbk":{"platform":"QRX300",'
                           '"fwVersion":"1.2.3-20260815"}}\n')
