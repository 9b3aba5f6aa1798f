"""The record of a run: reads it, and puts it into words for cases and for people."""

import json
import re

from . import text

_FILE_PART = re.compile(
    rb'name="([^"]*)"; filename="([^"]*)"[^\n]*\r\n(?:[^\r\n]+\r\n)*\r\n', re.DOTALL)


def read(run_dir):
    """The events of a run in the order in which they were written; each has its place `at`."""
    events = []
    at = 0
    for line in (run_dir / "trace").read_bytes().splitlines(keepends=True):
        at += len(line)
        event = json.loads(line)
        event["at"] = at
        events.append(event)
    return events


def _upload(event, run_dir):
    """FIELD FILENAME SHA256 of the first file in a form that was sent, or nothing."""
    import hashlib  # seldom needed, and slow to load

    content = (run_dir / event["body"]).read_bytes()
    boundary = re.search(r"boundary=(\S+)", event["head"])
    part = _FILE_PART.search(content)
    if not boundary or not part:
        return []
    end = content.find(b"\r\n--" + boundary[1].encode(), part.end())
    digest = hashlib.sha256(content[part.end():end]).hexdigest()
    return [text.from_bytes(part[1]), text.from_bytes(part[2]), digest]


def call_line(event):
    """A platform call or shell text as a line of [calls]."""
    if "shell" in event:
        return "shell " + text.value_written(event["shell"])
    parts = [argument if isinstance(argument, str) else str(argument)
             for argument in event["args"]]
    return text.words_written([event["call"], *parts])


def calls(events):
    return [call_line(event) for event in events if "call" in event or "shell" in event]


def script_line(event):
    return text.words_written([event["script"], *event["args"]])


def scripts(events):
    """Script runs in the order of the shell texts that started them: a text that runs in the
    background may come to its script after the program's next one did."""
    runs = [event for event in events if "script" in event]
    return [script_line(event) for event in sorted(runs, key=lambda event: event["by"])]


def request_line(event, run_dir):
    return text.words_written([event["request"], event["target"], *_upload(event, run_dir)])


def requests(events, run_dir):
    return [request_line(event, run_dir) for event in events if "request" in event]


def _ordered(events):
    """All events, each script run placed below the shell text that started it."""
    below = {}
    for event in events:
        if "script" in event:
            below.setdefault(event["by"], []).append(event)
    ordered = below.pop(0, [])
    for event in events:
        if "script" not in event:
            ordered.append(event)
            ordered += below.pop(event["at"], [])
    return ordered


def _result(event):
    if "result" not in event:
        return ""
    result = event["result"]
    if result is None:
        return "  -> (nothing)"
    return "  -> " + (text.to_json(result) if isinstance(result, str) else str(result))


def readable(events, changes, result, run_dir):
    """The record for people, as lines."""
    lines = []
    for event in _ordered(events):
        if "call" in event:
            lines.append("call    " + call_line(event) + _result(event))
        elif "shell" in event:
            lines.append("shell   " + text.value_written(event["shell"]))
        elif "script" in event:
            lines.append("script  " + script_line(event))
        elif "request" in event:
            lines.append("request " + request_line(event, run_dir))
    for change in changes:
        lines.append(f"file    {change.path} {change.what}{change.detail}")
    lines.append("exit    " + result.exit_line())
    return lines


def as_json(events, changes, result):
    """The record as JSON lines."""
    records = [{name: value for name, value in event.items() if name != "at"}
               for event in _ordered(events)]
    for record in records:
        record.pop("by", None)
    for change in changes:
        records.append({"file": change.path, "change": change.what, "kind": change.kind,
                        **({"content": change.content} if change.content is not None else {})})
    records.append({"exit": result.exit_line(), "seconds": round(result.took, 6)})
    return [json.dumps(record) for record in records]
