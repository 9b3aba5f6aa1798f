# help: build [NAME] -- builds the release, build/cpectl (or NAME: debug, asan, fuzz)
# shellcheck shell=bash

packages_need build
case ${1:-} in
    asan | debug) packages_need build test ;;
    fuzz) packages_need build fuzz ;;
esac
build "${1:-release}"
