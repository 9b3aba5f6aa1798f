"""The command line of cpectl-sim."""

import fcntl
import os
import shutil
import sys
from pathlib import Path

from . import GatewayError, base, case, places, run, snapshot, trace, world

USAGE = """\
usage: cpectl-sim [OPTION...] COMMAND [JSON]
       cpectl-sim [OPTION...] --shell [ARGUMENT...]

Runs cpectl with COMMAND and JSON in an emulated gateway, on the real program. --help and ? are
commands of cpectl. The options may stand behind the request, too; a lone -- stands before
arguments that look like options, and alone for none.

  --trace         afterwards print what the request did, in order
  --trace=json    the same as JSON lines
  --state DIR     keep the gateway in DIR (default: {state})
  --fresh         start from the factory image
  --scenario S    start from a scenario: a file, or a name in {scenarios}
  --reboot        restart the gateway first: /tmp and the running stores are emptied
  --shell         open a shell in the gateway, or run sh there with the ARGUMENTs
  --program PATH  the cpectl to run
  --platform DIR  the directory of its platform libraries and the nvram tool
  --recording DIR the recording libraries, where they are of another machine type
  --helpers DIR   the gateway's helper programs
  --lib-root DIR  the system root whose libraries the program uses
  --qemu PATH     a static qemu-user program that runs the program
  --usage         print this
"""

_WITH_VALUE = {"--state", "--scenario", "--program", "--platform", "--recording", "--helpers",
               "--lib-root", "--qemu"}
_FLAGS = {"--fresh", "--reboot", "--shell", "--usage", "--trace", "--trace=json"}


class UsageError(Exception):
    """The command line makes no sense; the text says why."""


def parse(arguments):
    """Splits the command line into options, which may stand anywhere, and the request."""
    options = {}
    request = []
    rest = list(arguments)
    while rest:
        word = rest.pop(0)
        name, equals, value = word.partition("=")
        if word == "--":
            return options, request + rest
        if word in _FLAGS:
            options[name] = value if equals else True
            if name == "--shell":
                return options, request + rest
        elif name in _WITH_VALUE:
            if not equals and not rest:
                raise UsageError(f"{word} needs a value")
            options[name] = value if equals else rest.pop(0)
        elif word.startswith("--") and word != "--help":
            raise UsageError(f"there is no option {word}")
        else:
            request.append(word)
    if not request and "--usage" not in options:
        raise UsageError("no command")
    return options, request


def _scenario_file(name):
    for path in (Path(name), places.GATEWAY / "scenarios" / name):
        if path.is_file():
            return path
    raise GatewayError(f"there is no scenario {name}: neither such a file nor a name in "
                       f"{places.GATEWAY / 'scenarios'}")


_FACTORY = "[world] factory\n"


def _open_state(state, options):
    """The root and the world of a state, which is made when it is new or has to be.

    The file "scenario" beside the root says what the gateway was made from: scripts, network and
    the like belong to each run.
    """
    root = state / "root"
    remembered = state / "scenario"
    if "--scenario" in options:
        content = _scenario_file(options["--scenario"]).read_text("utf-8")
    elif "--fresh" in options or not remembered.exists():
        content = _FACTORY
    else:
        content = None
    if content is not None:
        scenario = case.parse(content)  # before anything is lost
        shutil.rmtree(root, ignore_errors=True)
        remembered.unlink(missing_ok=True)
        world.make_root(root)
        gateway = world.World()
        world.apply(scenario.steps[0].world, gateway, root)
        remembered.write_text(content, "utf-8")
        return root, gateway
    gateway = world.World()
    kept = case.parse(remembered.read_text("utf-8")).steps[0].world
    world.apply(kept, gateway, None)
    return root, gateway


def _run_directory(state):
    """A new directory for this run; those of runs that were cut off go."""
    runs = state / "runs"
    runs.mkdir(parents=True, exist_ok=True)
    for old in runs.iterdir():
        if not Path(f"/proc/{old.name}").exists():
            shutil.rmtree(old, ignore_errors=True)
    directory = runs / str(os.getpid())
    shutil.rmtree(directory, ignore_errors=True)
    return directory


def _keep_as_last(state, run_dir):
    """Leaves the record of this run to be read at leisure."""
    shutil.rmtree(state / "last", ignore_errors=True)
    try:
        run_dir.rename(state / "last")
    except OSError:  # another run was quicker
        shutil.rmtree(run_dir, ignore_errors=True)


def _print_trace(how, before, root, run_dir, result):
    changes = snapshot.changes(before, snapshot.take(root))
    events = trace.read(run_dir)
    if how == "json":
        lines = trace.as_json(events, changes, result)
    else:
        lines = trace.readable(events, changes, result, run_dir)
    sys.stdout.buffer.write("".join(line + "\n" for line in lines)
                            .encode("utf-8", "surrogateescape"))


def _report_missing(result):
    if result.lingering:
        print("cpectl-sim: background processes were still running after 10 s; they were ended",
              file=sys.stderr)


def _execute(options, arguments):
    state = Path(options.get("--state") or places.state_default()).absolute()
    given = {name[2:].replace("-", "_"): options[name]
             for name in _WITH_VALUE - {"--state", "--scenario"} if name in options}
    place = places.find(**given)
    state.mkdir(parents=True, exist_ok=True)
    with open(state / "lock", "w", encoding="utf-8") as lock:
        # Several may start on one state; only one makes it.
        fcntl.flock(lock, fcntl.LOCK_EX)
        base_dir = base.ensure(state / "base")
        root, gateway = _open_state(state, options)
        if "--reboot" in options:
            world.reboot(root)
    before = snapshot.take(root) if "--trace" in options else None
    program = [base.BUSYBOX, "sh", *arguments] if "--shell" in options \
        else [run.PROGRAM, *arguments]
    run_dir = _run_directory(state)
    sys.stdout.flush()
    result = run.run(place, gateway, root, base_dir, run_dir, program, live=True)
    if "--trace" in options:
        _print_trace(options["--trace"], before, root, run_dir, result)
    _report_missing(result)
    _keep_as_last(state, run_dir)
    return result.shell_status()


def main(arguments):
    """Does what the command line says; returns the exit status."""
    try:
        options, rest = parse(arguments)
        if "--usage" in options:
            print(USAGE.format(state=places.state_default(),
                               scenarios=places.GATEWAY / "scenarios"), end="")
            return 0
        return _execute(options, rest)
    except UsageError as error:
        print(f"cpectl-sim: {error}; 'cpectl-sim --usage' says more", file=sys.stderr)
        return 2
    except (GatewayError, case.CaseError) as error:
        print(f"cpectl-sim: {error}", file=sys.stderr)
        return 125
    except PermissionError as error:
        print(f"cpectl-sim: {error.filename}: no permission: choose another directory with "
              "--state DIR", file=sys.stderr)
        return 125
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
        return 0
