"""Holds the record of a request against the contract.

A record fits one answer of its command: what was printed has its shape, and the calls are its steps
in their order. For this the steps become one regular expression over the calls, each line ended by
END. Every line of the contract that took part in a match is noted as shown.
"""

import json
import re
import sys
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(PROJECT / "tools/docs"))
sys.path.insert(0, str(PROJECT / "tests/model"))

import cjson  # noqa: E402
import contract  # noqa: E402

END = "\0"
ANY = f"[^{END}]*"
# Which library a call belongs to: a gateway without it makes none of its calls.
LIBRARY = {
    "nvram_get": "nvram", "nvram_set": "nvram", "nvram_commit": "nvram",
    "mvram_get": "mvram", "mvram_set": "mvram",
    "user_netlink_regist": "netlink", "netlink_send_user": "netlink",
    "netlink_receive_user": "netlink", "user_netlink_unregist": "netlink",
    "hostsort_info_sort": "hostsort", "hostsort_get_total_entry": "hostsort",
    "hostsort_get_next": "hostsort", "Web_STAinfo_Get": "wum", "WUMWTPKickoutSta": "wum",
}


# ---- arguments

def request_arguments(record):
    """The argument object as the program's JSON library reads it; None when there is none."""
    if len(record.arguments) < 2:
        return None
    return cjson.parse_or_none(record.arguments[1].encode("utf-8", "surrogateescape"))


ANYTHING = object()  # arguments that hold whatever is asked for, to list a pattern's lines


def argument_text(args, path):
    """The bytes of an argument, such as "WAN1.wanIp"; None when it is missing or no text."""
    if args is ANYTHING:
        return b"x"
    *outer, last = path.split(".")
    for name in outer:
        args = cjson.member(args, name.encode())
    return cjson.text_of(args, last.encode())


def _is_given(name, argument, args):
    if "object" not in argument:
        value = argument_text(args, name)
        return (value is not None and len(value) >= argument.get("at-least", 0)
                and len(value) <= argument.get("at-most-bytes", len(value)))
    if "at-least-one" in argument:
        return cjson.has_member(args, name.encode())
    inner = cjson.member(args, name.encode())
    return arguments_satisfy(argument["object"], inner)


def arguments_satisfy(arguments, args):
    """Whether everything is given that the contract asks for."""
    return all("optional" in argument
               or any(_is_given(name, argument, args) for name in contract.member_names(names))
               for names, argument in arguments.items())


def _is_chosen(given, args, values):
    """Whether an answer is the one for what is given in one argument."""
    if not given:
        return True
    path = contract.words(given["argument"], *values.items())
    text = argument_text(args, path)
    if "missing" in given:
        return text is None and cjson.has_member(args, path.split(".", maxsplit=1)[0].encode())
    starts = given.get("begins-with", given.get("begins-with-none-of"))
    begins = text is not None and as_text(text).startswith(tuple(starts))
    return begins if "begins-with" in given else text is not None and not begins


def as_text(data):
    return data.decode("utf-8", "surrogateescape")


# ---- steps

class Pattern:
    """The regular expression of an answer's steps; `groups` maps each group to what it shows."""

    def __init__(self, answer, where, args, absent, values):
        self.args = args
        self.absent = absent
        self.values = values
        self.groups = {}
        self.pattern = re.compile(self._steps(answer["steps"], where), re.DOTALL)

    def _group(self, what, pattern):
        name = f"g{len(self.groups)}"
        self.groups[name] = what
        return f"(?P<{name}>{pattern})"

    def _filled(self, text):
        return contract.words(text, *self.values.items())

    def _literal(self, text):
        parts = contract.pieces(self._filled(text))
        return "".join(ANY if at % 2 else re.escape(part) for at, part in enumerate(parts))

    def _line(self, call, rest):
        if LIBRARY.get(call) in self.absent:
            return ""
        return re.escape(call) + rest + END

    def _value(self, to):
        """The pattern of the value that is written; None when there is no such argument."""
        if "constant" in to:
            return re.escape(to["constant"])
        if "argument" not in to:
            return ANY
        given = argument_text(self.args, self._filled(to["argument"]))
        return None if given is None else re.escape(as_text(given[:to.get("cut-at", len(given))]))

    def _update(self, step, where):
        store, key = step["update"].split(" ", 1)
        value = self._value(step["to"])
        if value is None:
            return r"(?!)"
        key = " " + self._literal(key)
        written = self._line(f"{store}_set", f"{key} {value}")
        return (self._line(f"{store}_get", key)
                + self._group(("optional", f"{where}: the write"), written) + "?")

    def _call(self, step):
        call, _, rest = step["call"].partition(" ")
        words = self._literal(rest)
        if "to" in step:  # what its placeholder stands for
            words = words.replace(ANY, self._value(step["to"]) or r"(?!)")
        return self._line(call, " " + words if rest else "")

    def _bare(self, step, where):
        verb = contract.verb(step)
        if verb == "read":
            store, key = step["read"].split(" ", 1)
            return self._line(f"{store}_get", " " + self._literal(key))
        if verb == "update":
            return self._update(step, where)
        if verb == "commit":
            return self._line("nvram_commit", "")
        if verb == "call":
            return self._call(step)
        if verb == "shell":
            return "shell " + self._literal(step["shell"]) + END
        if verb == "either":
            chosen = [self._step(each, f"{where} choice {number}")
                      for number, each in enumerate(step["either"], 1)]
            return "(?:" + "|".join(chosen) + ")"
        return "(?:" + self._steps(step["steps"], where) + ")"

    def _step(self, step, where):
        """A step as a group; the kind tells how it has to be shown."""
        kind = "repeated" if "repeat" in step else "step"
        return self._group((kind, where), self._bare(step, where)) + ("*" if kind == "repeated"
                                                                      else "")

    def _steps(self, steps, where):
        found = []
        for number, step in enumerate(steps, 1):
            here = step.get("label", f"{where}, step {number}") + f" ({contract.verb(step)})"
            pattern = self._step(step, here)
            if "when" in step:
                pattern = self._group(("optional", f"{here} as a whole"), pattern) + "?"
            found.append(pattern)
        return "".join(found)

    def match(self, lines, credit):
        """Whether the lines are these steps. `credit` takes what that shows."""
        match = self.pattern.fullmatch("".join(line + END for line in lines))
        if not match:
            return False
        for group, (kind, what) in self.groups.items():
            took_part = match[group] is not None
            if took_part:
                credit.add(what)
            elif kind in ("optional", "repeated"):
                credit.add(f"{what}, left out")
        return True

    def lines(self):
        """Everything that has to be shown."""
        for kind, what in self.groups.values():
            yield what
            if kind in ("optional", "repeated"):
                yield f"{what}, left out"


# ---- answers

def parse_answer(text):
    """An answer with its members in order, doubled ones kept: ("object", pairs). None when it is
    no JSON."""
    try:
        return json.loads(text, object_pairs_hook=lambda pairs: ("object", pairs))
    except ValueError:
        return None


def _has_shape(value, shape, where, credit):
    if isinstance(shape, str):
        return value == shape
    where = shape.get("label", where)
    if "object" in shape:
        return (isinstance(value, tuple)
                and members_fit(value[1], shape["object"], where, credit))
    if "either" in shape:
        for number, each in enumerate(shape["either"], 1):
            here = f"{where} choice {number}"
            if _has_shape(value, each, here, credit):
                credit.add(here)
                return True
        return False
    if "list" in shape:
        return isinstance(value, list) and all(
            _has_shape(item, shape["list"], f"{where} entry", credit) for item in value)
    if "one-of" in shape:
        credit.add(f"{where} is {value}")
        return value in shape["one-of"]
    if "text" in shape:
        return isinstance(value, str)
    kinds = int if "whole" in shape else (int, float)
    if not isinstance(value, kinds) or isinstance(value, bool):
        return False
    credit.update(line for line in _bound_lines(shape, where) if line.endswith(f" is {value}"))
    return shape.get("at-least", value) <= value <= shape.get("at-most", value)


def _bound_lines(shape, where):
    """That a number was seen at its bounds."""
    return (f"{where} is {shape[bound]}" for bound in ("at-least", "at-most") if bound in shape)


def members_fit(pairs, members, where, credit):
    """Whether the members of an object are these, in this order."""
    at = 0
    for name, shape in members.items():
        here = f"{where}.{name}"
        named = contract.member_names(name)
        loose = isinstance(shape, dict) and ("optional" in shape or "repeated" in shape)
        seen = 0
        while at < len(pairs) and pairs[at][0] in named:
            if not _has_shape(pairs[at][1], shape, here, credit):
                return False
            if len(named) > 1:
                credit.add(f"{here} as {pairs[at][0]}")
            credit.add(here)
            at += 1
            seen += 1
            if not (isinstance(shape, dict) and "repeated" in shape):
                break
        if seen == 0:
            if not loose:
                return False
            credit.add(f"{here}, left out")
    return at == len(pairs)


def _shape_lines(shape, where):
    if isinstance(shape, str):
        return
    where = shape.get("label", where)
    if "object" in shape:
        yield from _member_lines(shape["object"], where)
    elif "either" in shape:
        for number, each in enumerate(shape["either"], 1):
            yield f"{where} choice {number}"
            yield from _shape_lines(each, f"{where} choice {number}")
    elif "list" in shape:
        yield from _shape_lines(shape["list"], f"{where} entry")
    elif "one-of" in shape:
        for value in shape["one-of"]:
            yield f"{where} is {value}"
    else:
        yield from _bound_lines(shape, where)


def _member_lines(members, where):
    for name, shape in members.items():
        here = f"{where}.{name}"
        yield here
        if isinstance(shape, dict) and ("optional" in shape or "repeated" in shape):
            yield f"{here}, left out"
        named = contract.member_names(name)
        if len(named) > 1:
            yield from (f"{here} as {each}" for each in named)
        yield from _shape_lines(shape, here)


def _own_line(printed):
    """The program's own line of an output that its scripts write to as well."""
    return next((line for line in printed.splitlines(keepends=True)
                 if line.startswith('{"fun":')), "")


def printed_fits(answer, record, where, credit):
    """Whether what was printed, and the exit status, are this answer's."""
    if record.unwritable:
        return record.exit == "255"
    if record.exit != str(answer["exit"]):
        return False
    printed = _own_line(record.printed) if answer.get("scripts-print") else record.printed
    if answer["answer"] == "nothing" or printed == "":
        return answer["answer"] == "nothing" and printed == ""
    if printed.endswith("\n") == (answer.get("newline") is False):
        return False
    return _has_shape(parse_answer(printed), {"object": answer["answer"]}, f"{where}, answer",
                      credit)


# ---- what goes on beside the calls

def _line_pattern(text):
    return re.compile("".join(".*" if at % 2 else re.escape(part)
                              for at, part in enumerate(contract.pieces(text))), re.DOTALL)


def _each_allowed(lines, allowed, where, what, credit):
    """Complaints about lines that fit none of the allowed patterns."""
    for line in lines:
        fitting = [text for text in allowed if _line_pattern(text).fullmatch(line)]
        if not fitting:
            yield f"{what} that the contract does not allow: {line}"
        credit.update(f"{where}, {what} {text}" for text in fitting)


# The gateway's own scripts and tools, whose runs the contract lists. What else a shell text starts
# (cut, sed, curl ...) its text tells.
_OWN = re.compile(r"/usr/sbin/\w+\.sh|/sbin/cpecryptpw|/usr/bin/dd_flash|/usr/local/sbin/ipsec")


def _is_own(run):
    return _OWN.fullmatch(run.split(" ")[0]) is not None


def _runs(answer):
    return [text for step in contract.all_steps(answer["steps"]) for text in step.get("runs", [])]


def beside(answer, record, where, credit):
    """Complaints about scripts, transfers and files."""
    scripts = filter(_is_own, record.scripts)
    yield from _each_allowed(scripts, _runs(answer), where, "a script run", credit)
    yield from _each_allowed(record.requests, answer.get("sends", []), where, "a transfer", credit)
    files = [f"{path} {how}" for path, hows in answer.get("files", {}).items() for how in hows]
    changes = [f"{path} {how}" for path, how in record.changes.items()]
    yield from _each_allowed(changes, files, where, "a file", credit)


def _beside_lines(answer, where):
    yield from (f"{where}, a script run {text}" for text in _runs(answer))
    yield from (f"{where}, a transfer {text}" for text in answer.get("sends", []))
    for path, hows in answer.get("files", {}).items():
        yield from (f"{where}, a file {path} {how}" for how in hows)


# ---- commands

def _choices(command):
    """Each way to fill in the values that the command's steps may take."""
    ways = [{}]
    for name, values in command.get("values", {}).items():
        ways = [{**way, name: value} for way in ways for value in values]
    return ways


def fitting_answers(command, record):
    """The answers that the request, its output and its calls fit: what each shows, by name."""
    args = request_arguments(record)
    found = {}
    for name, answer in command["answers"].items():
        where = f"{command['name']}: {name}"
        if arguments_satisfy(command["arguments"], args) == ("refuses" in answer):
            continue
        for values in _choices(command):
            if not _is_chosen(answer.get("given"), args, values):
                continue
            credit = {where}
            if not printed_fits(answer, record, where, credit):
                break
            pattern = Pattern(answer, where, args, record.absent, values)
            if pattern.match(record.calls, credit):
                credit.update(f"{command['name']}: {key} {value}" for key, value in values.items()
                              if f"<{key}>" in repr(answer["steps"]))
                found[name] = credit
                break
    return found


def lines_to_show(command):
    """Every line of the contract of a command that some case has to show."""
    for name, answer in command["answers"].items():
        where = f"{command['name']}: {name}"
        yield where
        if answer["answer"] != "nothing":
            yield from _member_lines(answer["answer"], f"{where}, answer")
        yield from Pattern(answer, where, ANYTHING, (), {}).lines()
        yield from _beside_lines(answer, where)
    for key, values in command.get("values", {}).items():
        yield from (f"{command['name']}: {key} {value}" for value in values)
