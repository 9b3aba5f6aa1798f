"""Makes the JSON Schemas of requests and answers from the contract."""

import json

import contract

DIALECT = "https://json-schema.org/draft/2020-12/schema"
REQUEST_NOTE = "The whole text may have 1023 bytes."


def _argument(argument):
    if "object" in argument:
        return {**_arguments(argument["object"]), "description": argument["about"]}
    schema = {"type": "string", "description": argument["text"]}
    if "at-least" in argument:
        schema["minLength"] = argument["at-least"]
    if "at-most-bytes" in argument:
        schema["maxLength"] = argument["at-most-bytes"]
    return schema


def _arguments(arguments):
    schema = {"type": "object", "properties": {}}
    for names, argument in arguments.items():
        for name in contract.member_names(names):
            schema["properties"][name] = _argument(argument)
    needed = [name for name, argument in arguments.items()
              if "optional" not in argument and "at-least-one" not in argument]
    if needed:
        schema["required"] = needed
    for names, argument in arguments.items():
        if "at-least-one" in argument:
            schema["anyOf"] = [{"required": [name]} for name in contract.member_names(names)]
    return schema


def request(command):
    """The schema of a command's argument object; any value for a command without arguments."""
    schema = {"$schema": DIALECT, "title": f"Arguments of {command['name']}",
              "description": f"{command['summary']} {REQUEST_NOTE}"}
    return {**schema, **(_arguments(command["arguments"]) if command["arguments"] else {})}


def _bounds(shape):
    names = {"at-least": "minimum", "at-most": "maximum"}
    return {names[name]: shape[name] for name in names if name in shape}


def _shape(shape):
    if isinstance(shape, str):
        return {"const": shape}
    if "object" in shape:
        return _members(shape["object"])
    if "list" in shape:
        return {"type": "array", "items": _shape(shape["list"])}
    if "either" in shape:
        return {"anyOf": [_shape(each) for each in shape["either"]]}
    if "one-of" in shape:
        about = {"description": shape["about"]} if "about" in shape else {}
        return {"enum": shape["one-of"], **about}
    if "text" in shape:
        return {"type": "string", "description": shape["text"]}
    kind = "whole" if "whole" in shape else "number"
    return {"type": "integer" if kind == "whole" else "number", "description": shape[kind],
            **_bounds(shape)}


def _is_loose(shape):
    return isinstance(shape, dict) and ("optional" in shape or "repeated" in shape)


def _members(members):
    properties = {}
    needed = []
    for names, shape in members.items():
        for name in contract.member_names(names):
            properties[name] = _shape(shape)
            if not _is_loose(shape) and name not in needed:
                needed.append(name)
    return {"type": "object", "properties": properties, "required": needed,
            "additionalProperties": False}


def answer(command):
    """The schema of what a command prints. Members come in the order of the properties."""
    shapes = []
    for each in command["answers"].values():
        schema = {"not": {}} if each["answer"] == "nothing" else _members(each["answer"])
        if schema != {"not": {}} and schema not in shapes:
            shapes.append(schema)
    schema = {"$schema": DIALECT, "title": f"Answer of {command['name']}"}
    if not shapes:
        return {**schema, "description": "Nothing is printed.", "not": {}}
    return {**schema, **(shapes[0] if len(shapes) == 1 else {"anyOf": shapes})}


def _text(schema):
    return json.dumps(schema, indent=2, ensure_ascii=False) + "\n"


def files(commands):
    """All schemas: the text of each file by its path below the project."""
    found = {}
    for name, command in commands.items():
        found[f"docs/schemas/requests/{name}.json"] = _text(request(command))
        found[f"docs/schemas/answers/{name}.json"] = _text(answer(command))
    return found
