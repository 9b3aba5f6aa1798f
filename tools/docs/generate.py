#!/usr/bin/python3
"""Makes what is generated from the contract: reference, manual page, completion, JSON Schemas.

usage: generate.py [FOLDER]: below FOLDER, by default the project.
"""

import sys
import tempfile
from pathlib import Path

import completion
import contract
import examples
import manual
import reference
import schemas


def files():
    """The text of each generated file by its path below the project."""
    subsystems = contract.load()
    commands = {command["name"]: command for _, _, listed in subsystems for command in listed}
    with tempfile.TemporaryDirectory(prefix="cpectl-docs-") as directory:
        shown = examples.run_all(commands, Path(directory))
    return {
        "docs/reference.html": reference.text(subsystems, shown),
        "docs/cpectl.8": manual.text(subsystems),
        "completion/cpectl.bash": completion.text(commands),
        **schemas.files(commands),
    }


def write(folder):
    """Writes all files below a folder; schemas of commands that are gone go, too."""
    made = files()
    for path in (folder / "docs/schemas").glob("*/*.json"):
        if str(path.relative_to(folder)) not in made:
            path.unlink()
    for name, text in made.items():
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, "utf-8")


if __name__ == "__main__":
    write(Path(sys.argv[1]) if len(sys.argv) > 1 else contract.PROJECT)
