"""Reads the contract, contract/*.yaml, and resolves what its files only refer to.

contract/README.md explains the format, contract/schema.json checks it.
"""

import copy
import json
import re
from pathlib import Path

import jsonschema
import yaml

PROJECT = Path(__file__).resolve().parents[2]
FOLDER = PROJECT / "contract"
# In the order of the command table, as far as subsystems have one.
SUBSYSTEMS = ["device", "network", "monitoring", "stations", "firmware", "proxy", "vpn"]
VERBS = ["read", "update", "commit", "call", "shell", "repeat", "either", "steps", "use"]


class ContractError(ValueError):
    """A file of the contract says something that cannot be."""


def verb(step):
    """What kind of step this is: the one key of VERBS that leads it."""
    return next(name for name in VERBS if name in step)


def words(*parts):
    """A text with the placeholder <n> of each (name, value) pair filled in."""
    text, *pairs = parts
    for name, value in pairs:
        text = text.replace(f"<{name}>", str(value))
    return text


def _filled(node, name, value):
    """A copy of a piece of the contract with a placeholder filled in everywhere."""
    if isinstance(node, str):
        return words(node, (name, value))
    if isinstance(node, list):
        return [_filled(item, name, value) for item in node]
    if isinstance(node, dict):
        return {key: _filled(item, name, value) for key, item in node.items()}
    return node


def _resolved_steps(steps, shared):
    resolved = []
    for step in steps:
        if "use" in step:
            used = shared[step["use"]]
            for name, value in step.items():
                if name != "use":
                    used = _filled(used, name, value)
            resolved += [{**inner, "label": f"steps {step['use']}, step {number}"}
                         for number, inner in enumerate(_resolved_steps(used, shared), 1)]
            continue
        step = copy.deepcopy(step)
        for inner in ("steps", "either"):
            if inner in step:
                step[inner] = _resolved_steps(step[inner], shared)
        resolved.append(step)
    return resolved


def _resolved_shape(shape, shapes):
    """A member's shape with each {shape: NAME} replaced by what it stands for."""
    if not isinstance(shape, dict):
        return shape
    if "shape" in shape:
        others = {key: value for key, value in shape.items() if key != "shape"}
        return {**_resolved_shape(shapes[shape["shape"]], shapes), **others,
                "label": f"shape {shape['shape']}"}
    shape = dict(shape)
    if "object" in shape:
        shape["object"] = {name: _resolved_shape(member, shapes)
                           for name, member in shape["object"].items()}
    if "list" in shape:
        shape["list"] = _resolved_shape(shape["list"], shapes)
    if "either" in shape:
        shape["either"] = [_resolved_shape(each, shapes) for each in shape["either"]]
    return shape


def _command(name, command, subsystem, file):
    shapes = file.get("shapes", {})
    command["name"] = name
    command["subsystem"] = subsystem
    command.setdefault("arguments", {})
    for answer in command["answers"].values():
        answer.setdefault("exit", 0)
        answer["steps"] = _resolved_steps(answer.get("steps", []), file.get("steps", {}))
        if answer["answer"] != "nothing":
            answer["answer"] = {member: _resolved_shape(shape, shapes)
                                for member, shape in answer["answer"].items()}
    return command


def member_name(name):
    """The name of a member as it is printed: a remark behind it tells doubled ones apart."""
    return name.split(" ")[0]


def member_names(name):
    """All names that a member may bear: "WAN1/WAN2" stands for either."""
    return member_name(name).split("/")


def load_file(path):
    """One file of the contract, checked against its schema."""
    content = yaml.safe_load(path.read_text("utf-8"))
    schema = json.loads((FOLDER / "schema.json").read_text("utf-8"))
    problems = sorted(jsonschema.Draft7Validator(schema).iter_errors(content),
                      key=lambda problem: list(map(str, problem.path)))
    if problems:
        where = "/".join(map(str, problems[0].path))
        raise ContractError(f"{path.name}: {where}: {problems[0].message}")
    return content


def load(folder=FOLDER):
    """The subsystems in their order: (name, what it is about, its commands with all resolved).

    What stands in one place for several commands bears a "label" that names this place.
    """
    found = []
    for subsystem in SUBSYSTEMS:
        file = load_file(folder / f"{subsystem}.yaml")
        commands = [_command(name, command, subsystem, file)
                    for name, command in file["commands"].items()]
        found.append((subsystem, file["about"], commands))
    return found


def commands(folder=FOLDER):
    """All commands by their names, in the order of the files."""
    return {command["name"]: command for _, _, listed in load(folder) for command in listed}


def all_steps(steps):
    """Every step of a list of steps, those inside others included."""
    for step in steps:
        yield step
        yield from all_steps(step.get("either", []))
        yield from all_steps(step.get("steps", []))


_PLACEHOLDER = re.compile(r"(<[a-z]+>)")


def pieces(text):
    """A pattern split into fixed texts and placeholders, the latter at the odd places."""
    return _PLACEHOLDER.split(text)
