"""Makes something once a run for all processes of pytest-xdist: the first that asks makes it, the
others wait and then use it."""
import contextlib
import fcntl
import os
import shutil


def run_folder(factory):
    """The temporary folder of the whole run; `factory` is the fixture tmp_path_factory."""
    base = factory.getbasetemp()
    return base.parent if "PYTEST_XDIST_WORKER" in os.environ else base


@contextlib.contextmanager
def turn(lock):
    """Only one process at a time is between here and the end."""
    lock.parent.mkdir(parents=True, exist_ok=True)
    with open(lock, "w", encoding="ascii") as held:
        fcntl.flock(held, fcntl.LOCK_EX)
        yield


def folder(factory, name, make):
    """A folder that make(folder) filled in this run: as a whole, or it is not there."""
    made = run_folder(factory) / name
    half = made.with_name(name + ".half")
    with turn(made.with_name(name + ".lock")):
        if not made.exists():
            shutil.rmtree(half, ignore_errors=True)
            half.mkdir()
            make(half)
            half.rename(made)
    return made
