# help: gateway [OPTION...] -- opens a shell inside the emulated gateway
# shellcheck shell=bash

packages_need build run
build release
exec "$ROOT/gateway/cpectl-sim" "$@" --shell
