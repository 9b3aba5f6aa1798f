# help: size -- the stripped program on each architecture: its budget, its largest symbols
# shellcheck shell=bash

# shellcheck source=tools/dev/lib/stages.sh
source "$ROOT/tools/dev/lib/stages.sh"
# shellcheck source=tools/dev/lib/targets.sh
source "$ROOT/tools/dev/lib/targets.sh"

packages_need build run
build release
for target in armhf mipsel mips musl; do
    build_target "$target" >&2 || true
done
"$ROOT/tools/bench/program.py" show
