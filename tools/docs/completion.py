"""Makes the bash completion of cpectl and cpectl-sim from the contract."""

import json
import sys
from pathlib import Path

import contract

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "gateway"))

from cpectl_sim import cli  # noqa: E402

_TEXT = """\
# bash completion for cpectl and cpectl-sim: commands, and the members of their arguments.
# Made from contract/ by './dev docs'; do not edit.
# shellcheck shell=bash

_cpectl_commands='{commands}'

# Prints a command's argument object with empty values; nothing for one without arguments.
_cpectl_arguments() {{ # COMMAND
    case $1 in
{templates}
    esac
}}

# Completes word COMP_CWORD, given which word (by its number) is the command.
_cpectl_word() {{ # NUMBER
    local word=${{COMP_WORDS[COMP_CWORD]}} template
    if ((COMP_CWORD == $1)); then
        mapfile -t COMPREPLY < <(compgen -W "$_cpectl_commands" -- "$word")
    elif ((COMP_CWORD == $1 + 1)) && [[ -z $word ]]; then
        template=$(_cpectl_arguments "${{COMP_WORDS[$1]}}")
        [[ -z $template ]] || COMPREPLY=("'$template'")
    fi
}}

_cpectl() {{
    COMPREPLY=()
    _cpectl_word 1
}}

_cpectl_sim() {{
    local at=1 word=${{COMP_WORDS[COMP_CWORD]}}
    COMPREPLY=()
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '{options}' -- "$word")
        return
    fi
    while ((at < COMP_CWORD)) && [[ ${{COMP_WORDS[at]}} == -* ]]; do
        case ${{COMP_WORDS[at]}} in
            {valued})
                ((at++))
                # The value is a name of a file or directory.
                if ((at == COMP_CWORD)); then
                    mapfile -t COMPREPLY < <(compgen -f -- "$word")
                    return
                fi
                ;;
        esac
        ((at++))
    done
    _cpectl_word "$at"
}}

complete -F _cpectl cpectl
complete -F _cpectl_sim cpectl-sim
"""


def _template(arguments):
    """An argument object with empty values; of several names of a member the first."""
    return {contract.member_names(names)[0]:
            _template(argument["object"]) if "object" in argument else ""
            for names, argument in arguments.items()}


def text(commands):
    """The completion file."""
    templates = []
    for name, command in commands.items():
        if command["arguments"]:
            object_text = json.dumps(_template(command["arguments"]), separators=(",", ":"))
            templates.append(f"        {name}) printf '%s' '{object_text}' ;;")
    return _TEXT.format(commands=" ".join(commands), templates="\n".join(templates),
                        options=" ".join(sorted(cli._FLAGS | cli._WITH_VALUE)),
                        valued=" | ".join(sorted(cli._WITH_VALUE)))
