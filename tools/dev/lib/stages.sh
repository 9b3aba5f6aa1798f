# Runs checks one after the other and keeps the score: one line a stage, the failures at the end.
# shellcheck shell=bash
: "${ROOT:?}" "${BUILD:?}"

RESULTS=$BUILD/results
export SKIPPED=77 # the status of a stage that cannot run here; its last line says why

# Forgets the results of the run before.
stages_begin() {
    build_folder
    rm -rf "${RESULTS:?}"
    mkdir -p "$RESULTS"
}

# stage TITLE NAME COMMAND...: runs the command and prints its outcome. What it prints goes to the
# file NAME.log; when it writes NAME.xml (JUnit), the tests in there count, else it counts as one.
# Of a stage in which no test was chosen nothing is said.
stage() {
    local title=$1 name=$2 status=0 began=$SECONDS counts
    shift 2
    [[ ! -t 1 ]] || printf '%s ...' "$title"
    ("$@") >"$RESULTS/$name.log" 2>&1 </dev/null || status=$?
    [[ ! -t 1 ]] || printf '\r\e[K'
    printf '%s\n' "$title" >"$RESULTS/$name.title"
    printf '%s\n' "$status" >"$RESULTS/$name.status"
    counts=$("$ROOT/tools/dev/results.py" stage "$RESULTS" "$name")
    [[ $counts == '0 passed, 0 failed, 0 skipped' ]] ||
        printf '%-44s%s %5d s\n' "$title" "$counts" $((SECONDS - began))
    return "$status"
}

# Prints the failures and, last, the line "N passed, N failed, N skipped". False when one failed.
stages_end() {
    "$ROOT/tools/dev/results.py" report "$RESULTS"
}
