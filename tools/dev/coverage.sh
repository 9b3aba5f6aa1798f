# help: coverage -- line coverage of src/ by the unit tests and the request cases
# shellcheck shell=bash

# shellcheck source=tools/dev/lib/stages.sh
source "$ROOT/tools/dev/lib/stages.sh"
# shellcheck source=tools/dev/lib/tests.sh
source "$ROOT/tools/dev/lib/tests.sh"

coverage_stages() {
    stage 'build: release' build-release build release || return 0
    stage 'build: with line counters' build-coverage build coverage || return 0
    find "$BUILD/coverage" -name '*.gcda' -delete
    stage 'unit tests' unit-coverage unit_tests unit-coverage coverage
    CPECTL_SIM_COUNTERS=$BUILD/coverage \
        stage 'request cases' cases-coverage request_cases cases-coverage build/coverage/src/cpectl
}

packages_need build run test coverage
stages_begin
coverage_stages || true # The end tells which stages failed.
stages_end || say 'some tests failed: the figures below may be too low'
mkdir -p "$BUILD/coverage/html"
(cd "$ROOT" && gcovr --object-directory build/coverage --filter src/ \
    --html-details build/coverage/html/index.html --txt -)
say "line by line: build/coverage/html/index.html"
