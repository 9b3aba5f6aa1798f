# help: docs -- makes the reference, the manual page, the completion and the schemas from contract/
# shellcheck shell=bash

packages_need build run docs
build release
"$ROOT/tools/docs/generate.py"
