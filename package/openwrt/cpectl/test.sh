#!/bin/sh
# Tries an installed package on the device (or in a root file system of it).
#
#   test.sh PACKAGE VERSION

fail() {
    echo "$1" >&2
    exit 1
}

# The help lists all commands and ends with 255, as everything that is no answer.
test_cpectl() {
    help=$(cpectl -h)
    [ $? -eq 255 ] || fail "cpectl -h does not end with 255"
    echo "$help" | grep -q '^getBaseInfo ' || fail "cpectl -h does not list getBaseInfo"
    answer=$(cpectl devNmSet '{}') || fail "cpectl devNmSet does not answer"
    [ "$answer" = '{"fun":"devNmSet","stat":"er"}' ] || fail "unexpected: $answer"
    cpectl-platform-check --help | grep -q '^usage: ' || fail "cpectl-platform-check says nothing"
}

# A value set with the tool is the one that cpectl shows, and the other way round.
test_cpectl_platform() {
    cpectl-platform-check nvram mvram || fail "the stock stores are not what cpectl expects"
    model=$(nvram get PRODUCT_TYPE)
    name=$(nvram get HOSTNAME)
    nvram set PRODUCT_TYPE=test || fail "nvram set"
    cpectl getBaseInfo | grep -q '"platform":"test"' || fail "cpectl does not see what was set"
    cpectl devNmSet '{"devNm":"a b"}' >/dev/null || fail "cpectl devNmSet"
    [ "$(nvram get HOSTNAME)" = "a b" ] || fail "nvram does not see what cpectl set"
    nvram set "PRODUCT_TYPE=$model" || fail "PRODUCT_TYPE stays at test"
    nvram set "HOSTNAME=$name" || fail "HOSTNAME stays at a b"
    nvram commit || fail "nvram commit"
}

case $1 in
    cpectl) test_cpectl ;;
    cpectl-platform) test_cpectl_platform ;;
    *) fail "there is no package $1" ;;
esac
