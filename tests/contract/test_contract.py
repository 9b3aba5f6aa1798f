"""The contract says what the program does: no more, as the request cases show it, and no less."""

import json
import re
import subprocess

import jsonschema
import match
import pytest
import schemas

ARGUMENT_LIMIT = 1023  # bytes of argument text; longer ones run no command


def command_of(record, commands):
    """The command that a request runs; None when it runs none."""
    if len(record.arguments) not in (1, 2):
        return None
    text = "".join(record.arguments[1:]).encode("utf-8", "surrogateescape")
    if len(text) > ARGUMENT_LIMIT:
        return None
    # No name begins another one, so their order does not matter.
    return next((command for name, command in commands.items()
                 if record.arguments[0].startswith(name)), None)


def complaints(record, command, shown):
    """What the contract does not allow of what a request did. `shown` takes what it shows."""
    found = match.fitting_answers(command, record)
    if record.unwritable:
        return [] if found else [f"{record.name}: fits no answer of {command['name']}"]
    # Without a library its calls are not there, which may make answers look alike.
    if not found or (len(found) > 1 and not record.absent):
        calls = "".join(f"\n    {call}" for call in record.calls)
        return [f"{record.name}: fits {list(found) or 'no answer'} of {command['name']}: "
                f"{record.arguments} -> {record.printed!r}, {record.exit}{calls}"]
    name, credit = next(iter(found.items()))
    problems = match.beside(command["answers"][name], record, f"{command['name']}: {name}", credit)
    problems = [f"{record.name}: {problem}" for problem in problems]
    if not record.absent:
        shown |= credit
    return problems


@pytest.fixture(scope="session", name="held")
def hold_all(records, commands):
    """All records held against the contract: (complaints, what was shown)."""
    problems = []
    shown = set()
    for record in records:
        command = command_of(record, commands)
        if command:
            problems += complaints(record, command, shown)
    return problems, shown


def test_cases_do_only_what_the_contract_allows(held):
    assert not held[0], "\n".join(held[0])


def test_cases_show_every_line_of_the_contract(held, commands):
    missing = [line for command in commands.values() for line in match.lines_to_show(command)
               if line not in held[1]]
    assert not missing, "\n".join(sorted(set(missing)))


def test_cases_show_every_file_that_is_read(records, commands):
    """Each such file is given, or taken away, in a case of its command."""
    given = {(command_of(record, commands) or {}).get("name"): set() for record in records}
    for record in records:
        given[(command_of(record, commands) or {}).get("name")].update(record.world)
    for name, command in commands.items():
        assert set(command.get("files-read", {})) <= given[name], name


# What no request reaches: the logger, which firmware builds open, and routines beside the
# commands.
UNREACHED = {"/tmp/cpectl.log", "/dev/console", "/usr/sbin/network.sh",
             "/usr/sbin/wireless_config.sh"}


def test_paths_in_the_program_are_in_the_contract(commands):
    """A file that the program begins to read or write, or a script that it begins to run, shows as
    a path that no command speaks of."""
    told = json.dumps(commands)
    paths = {path for source in (match.PROJECT / "src").rglob("*.cpp")
             for path in re.findall(r'"(?:> )?(/[\w./]+)', source.read_text("utf-8"))}
    assert len(paths) > 20
    assert {path for path in paths if path not in told} == UNREACHED


def test_requests_that_run_no_command_do_nothing(records, commands):
    others = [record for record in records if not command_of(record, commands)]
    assert others
    for record in others:
        assert (record.calls, record.scripts, record.changes) == ([], [], {}), record.name
        assert record.exit == "255", record.name


def listed_commands(program):
    """The program's own list: its commands in order, with their argument names."""
    listing = subprocess.run([program, "--help"], capture_output=True, text=True, check=False)
    rows = [line.split() for line in listing.stdout.splitlines()]
    return {row[0]: row[2].split(",") if len(row) > 2 else [] for row in rows}


def argument_names(arguments):
    for names, argument in arguments.items():
        yield from match.contract.member_names(names)
        yield from argument_names(argument.get("object", {}))


def test_commands_and_arguments_are_those_of_the_program(program, commands):
    listed = listed_commands(program)
    assert sorted(commands) == sorted(listed)
    for name, arguments in listed.items():
        known = set(argument_names(commands[name]["arguments"]))
        assert set(arguments) <= known, name
        assert bool(arguments) == bool(known), name


def changes_something(command):
    """Whether a command does more than read."""
    for answer in command["answers"].values():
        for step in match.contract.all_steps(answer["steps"]):
            if {"update", "commit"} & step.keys() or step.get("call", "").startswith("WUMWTPKick"):
                return True
            if ".sh " in step.get("shell", "") or "curl" in step.get("shell", ""):
                return True
    return False


def test_each_change_tells_how_to_see_its_effect(commands):
    for name, command in commands.items():
        assert changes_something(command) == ("takes-effect" in command) or name == \
            "localcfgUpdate", name
        shown_by = command.get("takes-effect", {}).get("shown-by")
        assert shown_by is None or (shown_by in commands
                                    and not changes_something(commands[shown_by])), name


# The gateway's scripts that may restart it.
RESTARTING = ("/usr/sbin/reboot.sh", "/usr/sbin/cpectlUpgrade.sh", "/usr/sbin/pushOTA.sh")


def test_commands_say_that_the_gateway_may_restart(records, commands):
    """Those of which a case shows that they run such a script, and no others."""
    shown = {command_of(record, commands)["name"] for record in records
             for run in record.scripts if run.startswith(RESTARTING)}
    assert shown == {name for name, command in commands.items() if "restarts" in command}


def test_background_is_what_the_shell_text_says(commands):
    for name, command in commands.items():
        for answer in command["answers"].values():
            for step in match.contract.all_steps(answer["steps"]):
                if "shell" in step:
                    assert step["background"] == step["shell"].endswith("&"), (name, step)


def test_answers_fit_their_schemas(records, commands):
    """Each answer that a case shows fits the JSON Schema that users get."""
    validators = {name: jsonschema.Draft202012Validator(schemas.answer(command))
                  for name, command in commands.items()}
    for record in records:
        command = command_of(record, commands)
        if command and not record.unwritable and record.printed.startswith('{"fun"'):
            answer = json.loads(record.printed.splitlines()[0])
            assert validators[command["name"]].is_valid(answer), record.name


def plain_arguments(record, command):
    """The arguments as any JSON library reads them; None when there are none, or when the program's
    own library reads them otherwise: names in other capitals, doubled ones, odd escapes."""
    try:
        pairs = match.parse_answer(record.arguments[1])
        arguments = json.loads(record.arguments[1])
    except (IndexError, ValueError):
        return None
    if match.request_arguments(record) is None or "\\u0000" in record.arguments[1]:
        return None
    given = [name for name, _ in pairs[1]] if isinstance(pairs, tuple) else []
    known = {name.lower(): name for name in argument_names(command["arguments"])}
    odd = [name for name in given
           if known.get(name.lower(), name) != name or given.count(name) > 1]
    return None if odd else arguments


def test_request_schemas_tell_which_requests_are_refused(records, commands):
    """A request that is answered as refused does not fit its schema, and every other one does."""
    validators = {name: jsonschema.Draft202012Validator(schemas.request(command))
                  for name, command in commands.items()}
    judged = 0
    for record in records:
        command = command_of(record, commands)
        arguments = plain_arguments(record, command) if command else None
        if arguments is None or not command["arguments"] or record.absent or record.unwritable:
            continue
        answers = match.fitting_answers(command, record)
        refused = any("refuses" in command["answers"][name] for name in answers)
        fits = validators[command["name"]].is_valid(arguments)
        # The program takes more than it should of what is in a link: members that are no texts.
        if command["name"] != "wanInfoSet":
            assert fits != refused, record.name
        assert not (fits and refused), record.name
        judged += 1
    assert judged > 300
