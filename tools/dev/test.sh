# help: test -- builds everything and runs all checks
# help: test NAME... -- runs the cases and tests whose path or name contains a NAME
# help: test --target TARGET [NAME...] -- the same for a target: armhf, mipsel, mips, musl
# shellcheck shell=bash

# shellcheck source=tools/dev/lib/stages.sh
source "$ROOT/tools/dev/lib/stages.sh"
# shellcheck source=tools/dev/lib/tests.sh
source "$ROOT/tools/dev/lib/tests.sh"
# shellcheck source=tools/dev/lib/targets.sh
source "$ROOT/tools/dev/lib/targets.sh"
# shellcheck source=tools/dev/lib/checks.sh
source "$ROOT/tools/dev/lib/checks.sh"

test_stages() {
    local folder name
    stage 'unit tests: with sanitizers' unit-asan unit_tests unit-asan asan
    stage 'unit tests: flags of the release' unit-release unit_tests unit-release unit
    stage 'request cases: release' cases-release request_cases cases-release build/cpectl
    stage 'request cases: with sanitizers' cases-asan request_cases cases-asan build/asan/src/cpectl
    for folder in "$ROOT"/tests/*/; do
        name=$(basename "$folder")
        if [[ $name != cases ]] && compgen -G "$folder/test_*.py" >/dev/null; then
            stage "tests: $name" "tests-$name" folder_tests "tests-$name" "tests/$name"
        fi
    done
}

everything() {
    stage 'build: release' build-release build release || return
    stage 'build: with sanitizers' build-asan build asan || return
    test_stages
    target_stages armhf
    target_stages mipsel
    lint_stages
}

target=
while (($# > 0)); do
    case $1 in
        --target)
            target=${2-}
            [[ -n ${TARGETS[${target:-none}]-} ]] || die "the targets are: ${!TARGETS[*]}"
            shift
            ;;
        -*) die "there is no option $1" ;;
        *)
            name=${1#tests/}
            chosen+=("${name#cases/}")
            ;;
    esac
    shift
done

packages_need build run test lint fuzz ${target:+cross "$target"}
if [[ -z $target ]] && ((${#chosen[@]} == 0)); then
    # Not everywhere can these be had; the tests that need them say so.
    (packages_need cross armhf mipsel package) || true
fi
stages_begin
# In each case, the end tells what failed.
if [[ -n $target ]]; then
    build release # The emulated gateway is this machine's.
    target_stages "$target" || true
elif ((${#chosen[@]} > 0)); then
    build release
    build asan
    test_stages || true
else
    everything || true
fi
stages_end
