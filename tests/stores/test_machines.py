"""Processes of different machines and word sizes on one store."""

import pathlib
import shutil
import subprocess

import pytest
from conftest import HERE, ROOT

pytestmark = pytest.mark.timing

SUBSTITUTES = ROOT / "substitutes"
SOURCES = [SUBSTITUTES / name for name in (
    "nvram/nvram.cpp", "store/kept_text.cpp", "store/entries.cpp", "store/latest.cpp",
    "store/store.cpp", "store/whole_file.cpp")]

# compiler prefix, emulator: both 32-bit; plain char has no sign on the first
MACHINES = [("arm-linux-gnueabihf", "qemu-arm-static"), ("mipsel-linux-gnu", "qemu-mipsel-static")]


def driver_for(triplet, emulator, folder):
    """The command that runs the driver with a library built for another machine."""
    library, driver = folder / f"libnvram-{triplet}.so", folder / f"driver-{triplet}"
    if not shutil.which(f"{triplet}-g++") or not shutil.which(emulator):
        pytest.skip(f"needs {triplet}-g++ and {emulator}")
    subprocess.run(
        [f"{triplet}-g++", "-std=c++20", "-Os", "-shared", "-fPIC", "-fvisibility=hidden",
         "-fno-exceptions", "-fno-rtti", "-D_GNU_SOURCE", "-D_FILE_OFFSET_BITS=64",
         '-DCPECTL_RUN_DIR="/nowhere"', '-DCPECTL_FLASH_DIR="/nowhere"', f"-I{SUBSTITUTES}",
         f"-I{ROOT}/include", *SOURCES, "-o", library], check=True)
    subprocess.run([f"{triplet}-gcc", "-O1", "-D_GNU_SOURCE", HERE / "driver.c", "-o", driver,
                    "-ldl", "-pthread"], check=True)
    return [emulator, "-L", str(pathlib.Path("/usr") / triplet), driver, library, "nvram"]


@pytest.mark.parametrize("triplet, emulator", MACHINES, ids=[row[0] for row in MACHINES])
def test_32_bit_and_64_bit_processes_share_a_store(stores, triplet, emulator):
    if stores.programs.sanitized:
        pytest.skip("the other machine's side has no sanitizers: run on the release alone")
    foreign = driver_for(triplet, emulator, stores.folder)
    own = stores.driver_command("nvram")
    children = [
        subprocess.Popen([*command, "hammer", str(writer), "4", "1", "1000"],
                         env=stores.environment(), stdout=subprocess.PIPE)
        for writer, command in enumerate([own, foreign, own, foreign])]
    expected = []
    for child in children:
        expected += child.communicate(timeout=60)[0].splitlines(keepends=True)
        assert child.returncode == 0
    assert sorted(stores.running.read_bytes().splitlines(keepends=True)) == sorted(expected)
