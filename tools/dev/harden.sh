# help: harden -- the long tests of what nothing may break, with their figures (two hours)
# help: harden NAME... -- some of them: injection json fuzz model memory faults kill concurrency
# shellcheck shell=bash

# shellcheck source=tools/dev/lib/stages.sh
source "$ROOT/tools/dev/lib/stages.sh"
# shellcheck source=tools/dev/lib/tests.sh
source "$ROOT/tools/dev/lib/tests.sh"

FUZZ_SECONDS=600     # for each entry point
MODEL_REQUESTS=20000 # of all commands

HARDEN_NAMES=(injection json memory faults kill concurrency model fuzz)

# What each pytest one runs.
declare -A HARDEN_FILES=(
    [injection]='test_injection.py test_places.py'
    [json]=test_json.py
    [memory]=test_memory.py
    [faults]='test_faults.py test_signals.py test_links.py'
    [kill]=test_kill.py
    [concurrency]=test_concurrency.py)

long_tests() { # NAME
    local files
    read -ra files <<<"${HARDEN_FILES[$1]}"
    CPECTL_HARDEN=long run_pytest "harden-$1" "${files[@]/#/tests/harden/}"
}

long_fuzz() {
    build fuzz && "$ROOT/tools/harden/fuzz.py" --seconds "$FUZZ_SECONDS"
}

long_model() {
    "$ROOT/tools/harden/model.py" --requests "$MODEL_REQUESTS" --jobs "$(nproc)"
}

# The figures in what a stage printed.
figures_show() { # NAME
    local pattern='s/^figure: /    /p'
    case $1 in
        fuzz) pattern='s/^/    /p' ;;
        model) pattern='/ requests in /s/^/    /p' ;;
    esac
    sed -n "$pattern" "$RESULTS/harden-$1.log"
}

harden_stages() {
    local name run
    stage 'build: release' build-release build release || return
    for name; do
        run=("long_$name")
        [[ -z ${HARDEN_FILES[$name]-} ]] || run=(long_tests "$name")
        stage "harden: $name" "harden-$name" "${run[@]}" || true # The end tells what failed.
        figures_show "$name"
    done
}

for name; do
    [[ " ${HARDEN_NAMES[*]} " == *" $name "* ]] ||
        die "there is no '$name' to harden; there are: ${HARDEN_NAMES[*]}"
done
(($# > 0)) || set -- "${HARDEN_NAMES[@]}"

packages_need build run test fuzz
stages_begin
harden_stages "$@" || true
stages_end
