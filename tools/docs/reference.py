"""Makes the command reference, one HTML page that needs nothing beside it, from the contract."""

import html
import re

import contract
import general

_STYLE = """
:root { color-scheme: light dark; --line: #8884; --soft: #8881; --mark: #b35900; }
@media (prefers-color-scheme: dark) { :root { --mark: #ffb366; } }
* { box-sizing: border-box; }
body { margin: 0; font: 15px/1.5 system-ui, sans-serif; display: flex; }
nav { position: sticky; top: 0; height: 100vh; overflow-y: auto; flex: 0 0 15rem; padding: 1rem;
      border-right: 1px solid var(--line); font-size: 14px; }
nav a { display: block; color: inherit; text-decoration: none; padding: 1px 4px;
        border-radius: 3px; }
nav a:hover { background: var(--soft); }
nav h2 { font-size: 13px; margin: 1rem 0 .2rem; text-transform: capitalize; color: var(--mark); }
nav input { width: 100%; padding: .3rem .5rem; font: inherit; }
main { flex: 1; min-width: 0; max-width: 62rem; padding: 1rem 2rem 6rem; }
section { border-top: 1px solid var(--line); margin-top: 2rem; padding-top: .5rem; }
h1 { font-size: 1.6rem; margin: .3rem 0; }
h2 { font-size: 1.3rem; } h3 { font-size: 1.15rem; margin: .8rem 0 .2rem; }
h3 a { color: inherit; text-decoration: none; }
h4 { font-size: 1rem; margin: .9rem 0 .2rem; }
.family { text-transform: capitalize; margin: 3rem 0 0; }
code, pre { font: 13px/1.45 ui-monospace, monospace; }
code { background: var(--soft); padding: 0 .2em; border-radius: 3px; overflow-wrap: anywhere; }
pre { background: var(--soft); padding: .6rem .8rem; white-space: pre-wrap;
      overflow-wrap: anywhere; border-radius: 4px;
      margin: .4rem 0; }
pre code { background: none; padding: 0; }
table { border-collapse: collapse; margin: .3rem 0; }
td, th { text-align: left; vertical-align: top; padding: .15rem .9rem .15rem 0;
         border-bottom: 1px solid var(--line); font-weight: normal; }
th { font-size: 13px; opacity: .7; }
ol, ul { margin: .2rem 0; padding-left: 1.5rem; }
.tag { font-size: 12px; border: 1px solid var(--line); border-radius: 9px; padding: 0 .5em;
       margin-right: .3em;
       white-space: nowrap; }
.tag.strong { border-color: var(--mark); color: var(--mark); }
.when { opacity: .75; font-style: italic; }
.effect { border-left: 3px solid var(--mark); padding-left: .7rem; margin: .6rem 0; }
@media (max-width: 50rem) { nav { display: none; } main { padding: 1rem; }
  table { display: block; overflow-x: auto; } }
@media print { nav { display: none; } }
"""

_SCRIPT = """
document.querySelector('#find').addEventListener('input', event => {
  const words = event.target.value.toLowerCase().split(/ +/);
  for (const link of document.querySelectorAll('nav a[data-text]'))
    link.hidden = !words.every(word => link.dataset.text.includes(word));
});
"""

_TITLES = {"vpn": "VPN"}

_LIBRARIES = {"hostsort": "libhostsort", "Web_STA": "libwum", "WUM": "libwum",
              "user_netlink": "libnetlink", "netlink": "libnetlink"}


def _prose(text):
    """Text in which `...` marks literal text and [text](file) a link, as HTML."""
    text = html.escape(text, quote=False)
    text = re.sub(r"\[([^]]*)\]\(([^)]*)\)", r'<a href="\2">\1</a>', text)
    return re.sub(r"`([^`]*)`", r"<code>\1</code>", text)


def _code(text):
    return f"<code>{html.escape(text, quote=False)}</code>"


def _table(heads, rows):
    if not rows:
        return ""
    head = "".join(f"<th>{title}" for title in heads)
    body = "".join("<tr>" + "".join(f"<td>{cell}" for cell in row) for row in rows)
    return f"<table><tr>{head}{body}</table>\n"


# ---- arguments and answers

def _argument_rows(arguments, outer=""):
    for names, argument in arguments.items():
        name = outer + " or ".join(contract.member_names(names))
        limits = [argument["limit"]] if "limit" in argument else []
        if "at-least" in argument:
            limits.append("not empty")
        if "at-most-bytes" in argument:
            limits.append(f"at most {argument['at-most-bytes']} bytes")
        if "optional" in argument:
            limits.append(f"may be left out: {argument['optional']}")
        kind = "object" if "object" in argument else "text"
        yield (_code(name), kind, _prose(argument.get("text") or argument["about"]),
               _prose("; ".join(limits)))
        if "object" in argument:
            yield from _argument_rows(argument["object"], "… ")


def _template(shape):
    """The answer as one reads it: fixed parts as they stand, the rest by its kind."""
    if isinstance(shape, str):
        return f'"{shape}"'
    if "object" in shape:
        return _object_template(shape["object"])
    if "list" in shape:
        return f"[{_template(shape['list'])}, …]"
    if "either" in shape:
        return "{…}"
    if "one-of" in shape:
        return "|".join(f'"{value}"' for value in shape["one-of"])
    return "TEXT" if "text" in shape else "NUMBER"


def _object_template(members):
    shown = []
    for name, shape in members.items():
        text = f'"{contract.member_name(name)}":{_template(shape)}'
        loose = isinstance(shape, dict) and ("optional" in shape or "repeated" in shape)
        shown.append(f"[{text}]" if loose else text)
    return "{" + ",".join(shown) + "}"


def _shape_text(shape):
    bounds = ""
    if "at-least" in shape and "at-most" in shape:
        bounds = f", {shape['at-least']} to {shape['at-most']}"
    elif "at-least" in shape:
        bounds = f", at least {shape['at-least']}"
    about = next((shape[kind] for kind in ("text", "whole", "number", "about") if kind in shape),
                 "")
    missing = f"; not there for {shape['optional']}" if "optional" in shape else ""
    kind = next(kind for kind in ("text", "whole", "number", "one-of") if kind in shape)
    shown = {"text": "text", "whole": "whole number", "number": "number",
             "one-of": " or ".join(shape.get("one-of", []))}[kind]
    return shown, _prose(about + bounds + missing)


def _member_rows(members, outer=""):
    """A row for each member that is not fixed."""
    for names, shape in members.items():
        name = outer + " / ".join(contract.member_names(names))
        if isinstance(shape, str):
            continue
        if "object" in shape:
            if "about" in shape:
                yield _code(name), "object", _prose(shape["about"])
            yield from _member_rows(shape["object"], f"{name}.")
        elif "list" in shape:
            yield from _member_rows({f"{name}[]": shape["list"]})
        elif "either" in shape:
            yield from _either_rows(name, shape["either"])
        else:
            yield (_code(name), *_shape_text(shape))


def _either_rows(name, shapes):
    # The four links have one shape: it is told once.
    if re.fullmatch(r".*WAN[2-4]", name):
        yield _code(name), "object", "likewise"
        return
    for number, each in enumerate(shapes):
        yield _code(name), "object", "one of these:" if number == 0 else "or:"
        for member, inner in each["object"].items():
            if isinstance(inner, str):
                yield _code("… " + member), inner, "any other type, or none"
            else:
                yield from _member_rows({member: inner}, "… ")


# ---- steps

def _store(text):
    store, key = text.split(" ", 1)
    return _code(key) + ("" if store == "nvram" else " of the second store")


def _written(to):
    if "constant" in to:
        return f"<code>{html.escape(to['constant'])}</code>" if to["constant"] else "an empty text"
    if "argument" in to:
        cut = f", cut at {to['cut-at']} bytes" if "cut-at" in to else ""
        return f"the argument {_code(to['argument'])}{cut}"
    return _prose(to["about"])


def _library(call):
    return next(library for start, library in _LIBRARIES.items() if call.startswith(start))


def _bare_step(step):
    verb = contract.verb(step)
    if verb == "read":
        return "read " + _store(step["read"])
    if verb == "update":
        return f"write {_store(step['update'])}: {_written(step['to'])} (unless it is that already)"
    if verb == "commit":
        return "<b>commit</b>"
    if verb == "call":
        return f"call {_code(step['call'])} of {_library(step['call'])}"
    if verb == "shell":
        how = "; it goes on in the background" if step["background"] else ""
        return f"shell: {_code(step['shell'])}{how}"
    if verb == "repeat":
        return step["repeat"] + ":" + _steps(step["steps"])
    if verb == "either":
        return "one of these:" + _steps(step["either"], "ul")
    return _steps(step["steps"]) if step["steps"] else "nothing"


def _step(step):
    when = f'<span class="when">if {_prose(step["when"])}:</span> ' if "when" in step else ""
    about = f" {_prose(step['about'])}" if "about" in step else ""
    return f"<li>{when}{_bare_step(step)}{about}"


def _steps(steps, kind="ol"):
    return f"<{kind}>" + "".join(map(_step, steps)) + f"</{kind}>"


# ---- a command

def _tags(command):
    steps = [step for answer in command["answers"].values()
             for step in contract.all_steps(answer["steps"])]
    if "restarts" in command:
        may = "may restart" if "decides" in command["restarts"] else "restarts"
        yield "strong", f"{may} the gateway"
    if any("update" in step for step in steps):
        yield "", "writes keys"
    if any("commit" in step for step in steps):
        yield "", "commits"
    elif any("update" in step for step in steps):
        yield "", "does not commit"
    if any("files" in answer for answer in command["answers"].values()):
        yield "", "changes files"
    if any(step.get("call", "").startswith("WUMWTPKick") for step in steps):
        yield "", "acts on a station"
    if any("sends" in answer for answer in command["answers"].values()):
        yield "", "talks to a server"
    if any("runs" in step for step in steps):
        yield "", "runs scripts"
    if any(step.get("background") for step in steps):
        yield "strong", "goes on in the background"
    if not any({"update", "commit", "runs"} & step.keys() for step in steps) and \
            "takes-effect" not in command:
        yield "", "reads only"


def _tag_list(command):
    return "".join(f'<span class="tag {kind}">{text}</span> ' for kind, text in _tags(command))


def _answer(answer, several):
    parts = []
    when = f'<span class="when">When {_prose(answer["when"])}</span>' if "when" in answer else ""
    if answer["answer"] == "nothing":
        shown = "Nothing is printed."
    else:
        shown = f"<pre>{html.escape(_object_template(answer['answer']), quote=False)}</pre>"
    status = f"Exit status {answer['exit']}." if answer["exit"] else ""
    parts.append(f"<h4>Answer {when}</h4>" if several else f"<h4>Answer</h4>{when}")
    parts.append(f"{shown} {status}")
    if answer["answer"] != "nothing":
        parts.append(_table(("Member", "Value", ""), list(_member_rows(answer["answer"]))))
    if answer["steps"]:
        parts.append("<p>What is done, in this order:" + _steps(answer["steps"]))
    elif several:
        parts.append("<p>Nothing is read, written or run.")
    files = [f"{_code(path)} {how} ({_prose(what)})"
             for path, hows in answer.get("files", {}).items() for how, what in hows.items()]
    if files:
        parts.append("<p>Files: " + "; ".join(files) + ".")
    if "sends" in answer:
        parts.append("<p>Sends: " + ", ".join(map(_code, answer["sends"])) + ".")
    return "\n".join(parts)


def _example(example):
    printed = example.printed if example.printed.endswith("\n") or not example.printed \
        else example.printed + "\n"
    session = f"$ {example.request}\n{printed}"
    return (f"<h4>Example</h4><pre>{html.escape(session, quote=False)}</pre>"
            "<p>What it did, as <code>cpectl-sim --trace</code> shows it:"
            f"<pre>{html.escape(chr(10).join(example.trace), quote=False)}</pre>")


def _effect(command):
    effect = command.get("takes-effect")
    if not effect:
        return ""
    shown_by = effect.get("shown-by")
    link = f'Shown by <a href="#{shown_by}">{shown_by}</a>. ' if shown_by else ""
    return (f'<div class="effect"><b>"ok" means accepted.</b> {link}'
            f"{_prose(effect['about'])}</div>")


def _command(command, example):
    name = command["name"]
    parts = [f'<section id="{name}"><h3><a href="#{name}">{name}</a></h3>{_tag_list(command)}',
             f"<p>{_prose(command['summary'])}"]
    if "restarts" in command:
        parts.append(_prose(command["restarts"]))
    rows = list(_argument_rows(command["arguments"]))
    parts.append(_table(("Argument", "", "", "Limits"), rows) if rows else "<p>No arguments.")
    parts.append(f'<p class="when">JSON Schemas: <a href="schemas/requests/{name}.json">request'
                 f'</a>, <a href="schemas/answers/{name}.json">answer</a>')
    parts.append(_effect(command))
    notes = "".join(f"<li>{_prose(note)}" for note in command.get("notes", []))
    parts.append(f"<ul>{notes}</ul>" if notes else "")
    parts.append(_example(example))
    several = len(command["answers"]) > 1
    parts += [_answer(answer, several) for answer in command["answers"].values()]
    if "files-read" in command:
        read = "; ".join(f"{_code(path)} ({_prose(what)})"
                         for path, what in command["files-read"].items())
        parts.append(f"<p>Reads: {read}.")
    return "\n".join(part for part in parts if part) + "</section>\n"


# ---- the page

def _navigation(subsystems):
    parts = ['<nav><input id="find" type="search" placeholder="Find a command" '
             'aria-label="Find a command">', "<h2>For all commands</h2>"]
    parts += [f'<a href="#{_anchor(title)}">{html.escape(title)}</a>'
              for title in ("At a glance", *(title for title, _ in general.SECTIONS))]
    for name, _, commands in subsystems:
        parts.append(f"<h2>{_TITLES.get(name, name)}</h2>")
        for command in commands:
            text = f"{command['name']} {command['summary']}".lower()
            parts.append(f'<a href="#{command["name"]}" title="{html.escape(command["summary"])}" '
                         f'data-text="{html.escape(text)}">{command["name"]}</a>')
    return "\n".join(parts) + "</nav>\n"


def _anchor(title):
    return re.sub(r"[^a-z]+", "-", title.lower()).strip("-")


def _glance(subsystems):
    """All commands on one screen: what each one touches, and what shows its effect."""
    rows = []
    for _, _, commands in subsystems:
        for command in commands:
            name = command["name"]
            shown_by = command.get("takes-effect", {}).get("shown-by")
            told = f'<a href="#{shown_by}">{shown_by}</a>' if shown_by else \
                "no command" if "takes-effect" in command else ""
            rows.append((f'<a href="#{name}">{name}</a>', _prose(command["summary"]),
                         _tag_list(command), told))
    return ('<h2 id="at-a-glance">At a glance</h2>\n'
            + _table(("Command", "", "What it touches", "Effect shown by"), rows))


def _general():
    parts = []
    for title, paragraphs in general.SECTIONS:
        parts.append(f'<h2 id="{_anchor(title)}">{html.escape(title, quote=False)}</h2>')
        parts += [f"<p>{_prose(paragraph)}" for paragraph in paragraphs]
    return "\n".join(parts)


def text(subsystems, examples):
    """The page. `examples` holds what each command's example did."""
    families = []
    for name, about, commands in subsystems:
        title = _TITLES.get(name, name)
        families.append(f'<h2 class="family">{title}</h2><p>{_prose(about)}\n')
        families += [_command(command, examples[command["name"]]) for command in commands]
    return (
        "<!DOCTYPE html>\n<!-- Made from contract/ by './dev docs'; do not edit. -->\n"
        '<html lang="en"><head><meta charset="utf-8">\n'
        '<meta name="viewport" content="width=device-width, initial-scale=1">\n'
        f"<title>cpectl: command reference</title>\n<style>{_STYLE}</style></head><body>\n"
        + _navigation(subsystems)
        + "<main><h1>cpectl: command reference</h1>\n"
        f"<p>What each of the {len(examples)} commands does to the gateway: its answers, the keys, "
        "files and scripts that it touches and in which order, and how to see that it took effect. "
        "Each example is the record of a real run in the emulated gateway.\n"
        + _glance(subsystems) + _general() + "\n" + "".join(families)
        + f"</main>\n<script>{_SCRIPT}</script></body></html>\n")
