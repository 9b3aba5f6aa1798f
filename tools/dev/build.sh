# help: build [NAME] -- builds the release, build/cpectl (or NAME: debug, asan)
# shellcheck shell=bash

packages_need build
[[ ${1:-} != asan && ${1:-} != debug ]] || packages_need build test
build "${1:-release}"
