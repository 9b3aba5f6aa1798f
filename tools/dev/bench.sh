# help: bench [--rounds N] [--json] -- what runs of cpectl cost beside other programs: one table
# shellcheck shell=bash

packages_need build run bench
build release
exec "$ROOT/tools/bench/__main__.py" "$@"
