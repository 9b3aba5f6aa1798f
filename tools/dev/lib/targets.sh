# The tests of the program built for another machine type, run through qemu, and of the static one.
# shellcheck shell=bash
: "${ROOT:?}" "${BUILD:?}"

# Each target with the emulator of its machine; "-" is this machine.
declare -A TARGETS=(
    [armhf]=qemu-arm-static [mipsel]=qemu-mipsel-static [mips]=qemu-mips-static [musl]=-)

# What the tests of a target do without, because Debian does not have it.
declare -A TARGET_LACKS=(
    [mips]="Debian has no libraries for it but the C library: cJSON and libcurl (without TLS) are
built from Debian's sources; without libmnl there is no stock libnetlink, libhostsort or libwum"
    [musl]="Debian has no libraries for it: cJSON is built from Debian's source; of the stock
libraries, the two stores are linked in; no unit tests, as there is no C++ library; a static program
loads no libcurl")

# Where the compiler or that machine's libraries cannot be had, the target is skipped.
build_target() { # TARGET
    if (packages_need cross "$1") && "$ROOT/tools/dev/sysroot.sh" "$1"; then
        build "$1"
        return
    fi
    echo "$1: its compiler or libraries could not be had"
    return "$SKIPPED"
}

# Fills the folder build/TARGET/platform: the stock libraries of the target, and this machine's own
# nvram tool, which the gateway's scripts start.
target_platform() { # TARGET
    local folder=$BUILD/$1/platform
    rm -rf "$folder"
    mkdir -p "$folder"
    cp "$BUILD/$1"/substitutes/lib*.so "$BUILD/release/substitutes/nvram" "$folder"
}

# shellcheck disable=SC2154  # tests.sh has "chosen"
target_cases() { # TARGET
    local place=(--program "$BUILD/$1/gateway/cpectl_recorded")
    if [[ ${TARGETS[$1]} != - ]]; then
        target_platform "$1" || return
        place=(--program "$BUILD/$1/src/cpectl" --platform "$BUILD/$1/platform"
            --recording "$BUILD/$1/gateway/recording" --lib-root "$BUILD/sysroot/$1"
            --qemu "$(command -v "${TARGETS[$1]}")")
    fi
    run_pytest "cases-$1" tests/cases "${chosen[@]/#/--only=}" "${place[@]}"
}

target_stages() { # TARGET
    stage "build: $1" "build-$1" build_target "$1" || return 0
    ((${#chosen[@]} > 0)) ||
        stage "size and needs: $1" "program-$1" "$ROOT/tools/bench/program.py" check "$1"
    [[ $1 == musl ]] || stage "unit tests: $1" "unit-$1" unit_tests "unit-$1" "$1"
    [[ $1 != armhf ]] ||
        stage 'unit tests: other char and time_t' unit-types unit_tests unit-types types
    stage "request cases: $1" "cases-$1" target_cases "$1"
    [[ -z ${TARGET_LACKS[$1]-} ]] || say "$1: ${TARGET_LACKS[$1]//$'\n'/ }"
}
