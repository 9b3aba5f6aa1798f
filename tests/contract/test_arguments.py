"""What the contract says of arguments is shown by the request cases, from both sides of each
limit."""

import match
import pytest
from test_contract import command_of


def texts(arguments, outer=""):
    """Each argument that is a text, by its path, such as "WAN1.wanIp"."""
    for names, argument in arguments.items():
        for name in match.contract.member_names(names):
            if "object" in argument:
                yield from texts(argument["object"], f"{outer}{name}.")
            else:
                yield f"{outer}{name}", argument


def sides(argument):
    """What has to be shown of an argument: pairs of its length, None when it is missing, and
    whether the request fits."""
    least = argument.get("at-least", 0)
    if "optional" in argument:
        yield None, True
    else:
        yield from ((None, False), (least, True))
    if least:
        yield least - 1, False
    if "at-most-bytes" in argument:
        yield from ((argument["at-most-bytes"], True), (argument["at-most-bytes"] + 1, False))


@pytest.fixture(scope="module", name="given")
def all_given(records, commands):
    """By command: the argument objects of its requests, and whether the contract accepts each."""
    found = {name: [] for name in commands}
    for record in records:
        command = command_of(record, commands)
        if command and not record.unwritable:
            args = match.request_arguments(record)
            found[command["name"]].append(
                (args, match.arguments_satisfy(command["arguments"], args)))
    return found


def test_cases_show_both_sides_of_each_limit(given, commands):
    missing = []
    for name, command in commands.items():
        for path, argument in texts(command["arguments"]):
            values = [(match.argument_text(args, path), accepted)
                      for args, accepted in given[name]]
            shown = {(None if value is None else len(value), accepted)
                     for value, accepted in values}
            missing += [f"{name}: {path} of {length} bytes is {'accepted' if fits else 'refused'}"
                        for length, fits in sides(argument) if (length, fits) not in shown]
    assert not missing, "\n".join(missing)


def named(node, key):
    """The names of all arguments that an answer refers to."""
    if isinstance(node, list):
        for item in node:
            yield from named(item, key)
    elif isinstance(node, dict):
        if isinstance(node.get(key), str):
            yield node[key]
        for value in node.values():
            yield from named(value, key)


def test_steps_name_arguments_that_there_are(commands):
    for name, command in commands.items():
        known = {path for path, _ in texts(command["arguments"])}
        for number in command.get("values", {}).get("n", [""]):
            used = {match.contract.words(path, ("n", number))
                    for path in named(command["answers"], "argument")}
            assert used <= known, name
