# The tests that run something: unit tests, request cases, folders of tests/ with pytest tests.
# shellcheck shell=bash
: "${ROOT:?}" "${BUILD:?}" "${RESULTS:?}"

# The names that the tests are chosen by; none means everything.
chosen=()

# Fills the array `only` with the choice of unit tests: whole programs or, when no program has such
# a name, the tests in all of them whose name matches.
choose_unit_tests() { # BUILD
    local IFS
    only=()
    ((${#chosen[@]} > 0)) || return 0
    IFS='|'
    if [[ $(ctest --test-dir "$BUILD/$1" --show-only -R "${chosen[*]}") == *'Test '*'#'* ]]; then
        only=(-R "${chosen[*]}")
    else
        IFS=:
        export GTEST_FILTER="${chosen[*]/#/*}"
        GTEST_FILTER="${GTEST_FILTER//:/*:}*"
    fi
}

# The unit tests of a build. Each test program writes its own results; ctest, how it ended.
unit_tests() { # RESULT BUILD
    build "$2" || return
    local only
    choose_unit_tests "$2"
    GTEST_OUTPUT=xml:$RESULTS/$1/ ctest --test-dir "$BUILD/$2" -j "$(nproc)" \
        --output-on-failure --output-junit "$RESULTS/$1.xml" "${only[@]}"
}

# pytest with two processes for each processor, since many tests wait: for a pause of the program or
# a script, say. Tests of one group share a process. What failed of the tests that are marked as
# `timing` runs once more, alone; a few failures there are enough.
run_pytest() { # RESULT ARGUMENT...
    local result=$1 status=0
    shift
    pytest_here "$result" "$result" -n "$((2 * $(nproc)))" --dist loadgroup "$@" || status=$?
    ((status != 1)) ||
        pytest_here "$result" "$result-alone" --last-failed -m timing --maxfail=3 "$@" || true
    # 5 says that no test was chosen.
    ((status == 5 && ${#chosen[@]} > 0)) || return "$status"
}

# The first name is that of the notes on what failed, the second that of the list of results.
pytest_here() { # NOTES RESULT ARGUMENT...
    local notes=$1 result=$2
    shift 2
    (cd "$ROOT" && /usr/bin/python3 -m pytest -q -o "cache_dir=$RESULTS/failed/$notes" \
        --junit-xml="$RESULTS/$result.xml" "$@")
}

# The request cases on one program.
request_cases() { # RESULT PROGRAM
    run_pytest "$1" tests/cases --program "$ROOT/$2" "${chosen[@]/#/--only=}"
}

# The tests of a folder of tests/.
folder_tests() { # RESULT FOLDER
    local name choice=
    for name in "${chosen[@]}"; do
        choice+="${choice:+ or }$name"
    done
    run_pytest "$1" "$2" ${choice:+-k "$choice"}
}
