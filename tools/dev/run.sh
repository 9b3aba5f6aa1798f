# help: run [OPTION...] COMMAND [JSON] -- runs cpectl in the emulated gateway
# help: run --help -- lists the commands of cpectl
# shellcheck shell=bash

(($# > 0)) || die "usage: ./dev run [OPTION...] COMMAND [JSON], such as: ./dev run getBaseInfo"
packages_need build run
build release
exec "$ROOT/gateway/cpectl-sim" "$@"
