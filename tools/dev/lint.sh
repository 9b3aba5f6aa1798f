# help: lint -- the checks that read the code: layout, warnings, rules of the house
# help: lint --fix -- lays out all C and C++ files with clang-format
# shellcheck shell=bash

# shellcheck source=tools/dev/lib/stages.sh
source "$ROOT/tools/dev/lib/stages.sh"
# shellcheck source=tools/dev/lib/checks.sh
source "$ROOT/tools/dev/lib/checks.sh"

packages_need build run test lint
if [[ ${1:-} == --fix ]]; then
    format_all
    exit
fi
stages_begin
lint_stages || true # The end tells which stages failed.
stages_end
