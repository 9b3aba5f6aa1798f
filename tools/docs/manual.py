"""Makes the manual page cpectl(8) from the contract."""

import re

import contract
import general

_HEAD = """\
.\\" Made from contract/ by './dev docs'; do not edit.
.Dd $Mdocdate: November 21 2026 $
.Dt CPECTL 8
.Os
.Sh NAME
.Nm cpectl
.Nd do one management command of the gateway
.Sh SYNOPSIS
.Nm
.Ar command
.Op Ar arguments
.Nm
.Fl h
.Sh DESCRIPTION
.Nm
runs on a small Linux router, called the gateway.
Each run does one command and prints the answer as one line of JSON.
"""

_TAIL = """\
.Sh FILES
.Bl -tag -width Ds
.It Pa /disk/conf/ipsec.cfg
the tunnels, see
.Xr ipsec.cfg 5
.It Pa /disk/conf/pptpuser.cfg
the users of the PPTP server, see
.Xr pptpuser.cfg 5
.It Pa /etc/cpectl.cfg
the identity file, see
.Xr cpectl.cfg 5
.It Pa /etc/router.ver
version and date of the firmware
.It Pa /tmp/password.tmp , /tmp/pushfile , /tmp/ipsec_stat
work files, left where they are
.El
.Sh EXIT STATUS
0 when an answer was printed, otherwise 255.
.Sh EXAMPLES
Give the gateway a name, and see that it has it:
.Bd -literal -offset indent
$ cpectl devNmSet '{"devNm":"office"}'
{"fun":"devNmSet","stat":"ok"}
$ cpectl gwDevListGet
.Ed
.Sh SEE ALSO
.Xr cpectl-sim 1 ,
.Xr cpectl.cfg 5 ,
.Xr ipsec.cfg 5 ,
.Xr pptpuser.cfg 5
"""

_TITLES = {"vpn": "VPN"}
_WIDTH = 78


def _escaped(text):
    return text.replace("\\", "\\e")


def _quoted(text):
    """A text as one argument of a macro."""
    return '"' + _escaped(text).replace('"', '""') + '"'


def _wrapped(text):
    """Running text as lines, a new one for each sentence; none begins like a macro."""
    for sentence in re.split(r"(?<=[.?!]) +(?=[A-Z`\"])", text.strip()):
        line = ""
        for word in sentence.split():
            if line and len(line) + 1 + len(word) > _WIDTH:
                yield line
                line = ""
            line += (" " if line else "") + word
        if line:
            yield ("\\&" if line[0] in ".'" else "") + line


def prose(text):
    """A paragraph in which `...` marks literal text and [text](file) a link."""
    text = re.sub(r"\[([^]]*)\]\([^)]*\)", r"`\1`", text)
    lines = []
    glue = ""  # punctuation in front of the next literal
    for number, part in enumerate(text.split("`")):
        if number % 2:
            lines.append(f".Ql {glue}{_quoted(part)}")
            glue = ""
            continue
        closing = re.match(r"([.,:;)?]*)(?=\s|$)", part)
        if number and closing and closing[1]:
            lines[-1] += " " + " ".join(closing[1])
            part = part[closing.end():]
        if part.endswith("("):
            part, glue = part[:-1], "( "
        lines += _wrapped(_escaped(part))
    return lines


def _argument_lines(arguments):
    lines = [".Bl -tag -width Ds -compact"]
    for names, argument in arguments.items():
        for name in contract.member_names(names)[:1]:
            shown = " | ".join(contract.member_names(names))
            lines.append(f".It Ar {_quoted(shown if name else names)}")
        about = argument.get("text") or argument["about"]
        remarks = [about.rstrip(".")]
        remarks += [argument["limit"]] if "limit" in argument else []
        if "at-most-bytes" in argument:
            remarks.append(f"at most {argument['at-most-bytes']} bytes")
        if "optional" in argument:
            remarks.append(f"without it, {argument['optional']}")
        if "at-least" in argument:
            remarks.append("not empty")
        lines += prose("; ".join(remarks) + ".")
        if "object" in argument:
            lines += ["Its members:", *_argument_lines(argument["object"])]
    return [*lines, ".El"]


def _effects(command):
    """What a command does to the gateway, in words."""
    steps = [step for answer in command["answers"].values()
             for step in contract.all_steps(answer["steps"])]
    keys = {store: list(dict.fromkeys(
        step["update"].split(" ")[1] for step in steps
        if step.get("update", "").startswith(store))) for store in ("nvram", "mvram")}
    runs = list(dict.fromkeys(run for step in steps for run in step.get("runs", [])))
    # A script that may also be run without its last word is told once.
    scripts = [run for run in runs if not any(other.startswith(run + " ") for other in runs)]
    if keys["nvram"]:
        yield "Writes " + ", ".join(f"`{key}`" for key in keys["nvram"]) + "."
    if keys["mvram"]:
        yield "Writes " + ", ".join(f"`{key}`" for key in keys["mvram"]) + " of the second store."
    commits = any("commit" in step for step in steps)
    if keys["nvram"] and not commits:
        yield "Commits nothing."
    elif commits:
        yield "Commits."
    if scripts:
        yield "Runs " + ", ".join(f"`{run}`" for run in scripts) + "."


def _command_lines(command):
    lines = [f".It Ic {command['name']}", *prose(command["summary"])]
    if command["arguments"]:
        lines += _argument_lines(command["arguments"])
    effects = [*_effects(command)]
    if "restarts" in command:
        effects.append("Restart: " + command["restarts"])
    effect = command.get("takes-effect", {"about": ""})
    shown_by = f"Its effect is shown by `{effect['shown-by']}`. " if "shown-by" in effect else ""
    for paragraph in (" ".join(effects), shown_by + effect["about"],
                      " ".join(command.get("notes", []))):
        if paragraph:
            lines += [".Pp", *prose(paragraph)]
    return lines


def _left_behind_lines():
    """What a killed request leaves, file by file."""
    lines = [".Ss What a killed request leaves", *prose(
        "Alone means that only the program ends and what it started goes on; all, that everything "
        "ends, as when the power goes."), ".Bl -tag -width Ds"]
    for what, by, left, mends in general.left_behind():
        lines += [".It " + what.replace("`", ""), *prose(f"By {by}:"), *prose(left + ".")]
        lines += prose(f"Mended by {mends}.") if mends else []
    return [*lines, ".El"]


def text(subsystems):
    """The page. Sentences of notes start new lines, as the format asks for."""
    lines = []
    for title, paragraphs in general.SECTIONS:
        lines.append(f".Ss {_quoted(title)}")
        for number, paragraph in enumerate(paragraphs):
            lines += [".Pp"] if number else []
            lines += prose(paragraph)
    lines += _left_behind_lines()
    lines.append(".Sh COMMANDS")
    for name, about, commands in subsystems:
        title = _TITLES.get(name, name.capitalize())
        lines += [f".Ss {title}", *prose(about), ".Bl -tag -width Ds"]
        for command in commands:
            lines += _command_lines(command)
        lines.append(".El")
    return _HEAD + "\n".join(lines) + "\n" + _TAIL
