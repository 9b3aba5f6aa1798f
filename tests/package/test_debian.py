"""The Debian packages: built, seen by lintian, installed in a clean system, and run there (the
latter takes longer and fetches a system)."""
import os
import re
import shutil
import subprocess

import pytest
from conftest import BUILD, ROOT, run

# One process makes the packages and the system, and removes the system again.
pytestmark = pytest.mark.xdist_group("debian")

# With the new system as the root of a mount namespace of its own, as a container has it. (In a mere
# chroot whose root is no mount point, namespaces cannot be made.)
ENTER = ["unshare", "--mount", "--pid", "--fork", "sh", "-ec", """
    mount --make-rprivate /
    mount --bind "$0" "$0"
    mount -t proc proc "$0/proc"
    mount --rbind /dev "$0/dev"
    mkdir -p "$0/.old"
    cd "$0"
    pivot_root . .old
    umount -l .old
    cd /
    exec "$@"
"""]


def archive():
    """The archive that this machine installs from."""
    return run("bash", "-c", f"source {ROOT}/tools/dev/lib/archive.sh; debian_archive").strip()


@pytest.fixture(scope="module")
def said():
    """What building the packages prints: their names and, before these, complaints of lintian."""
    if not shutil.which("lintian"):
        pytest.skip("lintian is not installed: './dev package debian' installs it")
    return run(ROOT / "dev", "package", "debian").splitlines()


@pytest.fixture(scope="module")
def packages(said):
    assert said
    return sorted(path for path in (BUILD / "package/debian").glob("*.deb")
                  if "dbgsym" not in path.name)


@pytest.fixture(scope="module")
def system(packages, tmp_path_factory):
    """A function that runs a command in a minimal system with the packages."""
    if not shutil.which("mmdebstrap") or os.geteuid() != 0:
        pytest.skip("needs mmdebstrap and root")
    if not archive():
        pytest.skip("no Debian archive in this machine's apt sources")
    if subprocess.run(["unshare", "--mount", "--pid", "--fork", "true"], check=False).returncode:
        pytest.skip("no namespaces can be made here")
    root = tmp_path_factory.mktemp("system") / "root"
    names = " ".join(str(path) for path in packages)
    run("mmdebstrap", "--quiet", "--variant=minbase", f"--customize-hook=copy-in {names} /tmp",
        "--customize-hook=chroot \"$1\" sh -c "
        "'apt-get install -qy --no-install-recommends /tmp/*.deb'",
        "bookworm", root, f"deb {archive()} bookworm main")

    def inside(*command):
        return subprocess.run([*ENTER, root, *command], capture_output=True, text=True, check=False)
    yield inside
    shutil.rmtree(root)


def test_four_packages(packages):
    assert [path.name.split("_")[0] for path in packages] == [
        "cpectl-doc", "cpectl-sim", "cpectl", "libcpectl-platform"]


def test_lintian_has_nothing_to_say(said):
    assert [line for line in said if not line.endswith(".deb")] == []


BASE_INFO = ('{"fun":"getBaseInfo","stat":"ok","cbk":{"platform":"QRX300",'
             '"fwVersion":"1.2.3-20260815"}}\n')


@pytest.mark.slow
def test_the_emulated_gateway_answers(system):
    done = system("cpectl-sim", "getBaseInfo")
    assert (done.returncode, done.stdout, done.stderr) == (0, BASE_INFO, "")


@pytest.mark.slow
def test_the_emulated_gateway_answers_a_plain_user(system):
    done = system("setpriv", "--reuid", "1000", "--regid", "1000", "--clear-groups",
                  "env", "HOME=/tmp/home", "cpectl-sim", "getBaseInfo")
    assert (done.returncode, done.stdout, done.stderr) == (0, BASE_INFO, "")


@pytest.mark.slow
def test_the_trace_works_there(system):
    done = system("cpectl-sim", "--fresh", "--trace", "devNmSet", '{"devNm":"office"}')
    assert "call    nvram_set HOSTNAME office  -> 0\n" in done.stdout


@pytest.mark.slow
def test_the_program_finds_the_stock_libraries(system):
    done = system("sh", "-c", "nvram set HOSTNAME=office; cpectl gwDevListGet")
    assert '"devNm":"office"' in done.stdout
    done = system("sh", "-c", "mkdir -p /disk/conf; cpectl-platform-check nvram mvram")
    assert done.returncode == 0, done.stdout
    assert re.search(r"loaded from /usr/lib/\S+/cpectl/libmvram.so", done.stdout)
