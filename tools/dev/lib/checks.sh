# The checks that read the project without running it. `lint_stages` runs them all.
# shellcheck shell=bash
: "${ROOT:?}" "${BUILD:?}" "${RESULTS:?}"

# The project's files whose name matches one of the patterns, separated by null bytes, from ROOT on.
project_files() {
    local pattern names=()
    for pattern in "$@"; do
        names+=(-o -name "$pattern")
    done
    (cd "$ROOT" && find . \( -path ./build -o -path ./.git \) -prune -o \
        -type f \( "${names[@]:1}" \) -print0 | sort -z)
}

check_format() {
    local complaints
    cd "$ROOT" || return
    complaints=$(project_files '*.h' '*.c' '*.cpp' |
        xargs -0 clang-format --dry-run -Werror 2>&1) && return
    echo "the layout differs from these lines on; './dev lint --fix' mends it:"
    grep error: <<<"$complaints" | sort -u -t: -k1,1 || printf '%s\n' "$complaints"
    return 1
}

format_all() {
    cd "$ROOT" && project_files '*.h' '*.c' '*.cpp' | xargs -0 clang-format -i
}

# What a verdict of clang-tidy depends on, besides the file itself.
tidy_key() {
    clang-tidy --version &&
        (cd "$ROOT" && project_files .clang-tidy CMakeLists.txt '*.h' | xargs -0 cat)
}

# Looks at the files that changed since they were last found in order, or at all when a header did.
check_tidy() {
    configure clang || return
    local file sum key passed=$BUILD/clang/tidy changed=()
    key=$(tidy_key | sha256sum) && mkdir -p "$passed" || return
    while IFS= read -r -d '' file; do
        sum=$({ printf '%s %s\n' "$key" "$file" && cat "$ROOT/$file"; } | sha256sum)
        [[ -e $passed/${sum%% *} ]] || changed+=("$file" "$passed/${sum%% *}")
    done < <(cd "$ROOT" &&
        find src substitutes gateway/native tools/platform_check -name '*.c*' -print0)
    ((${#changed[@]} > 0)) || return 0
    # shellcheck disable=SC2016  # the inner shell expands these
    printf '%s\0' "${changed[@]}" | (cd "$ROOT" && xargs -0 -n 2 -P "$(nproc)" sh -c \
        'clang-tidy --quiet -p build/clang "$0" 2>/dev/null && : >"$1"')
}

# The files whose name ends in SUFFIX or whose first line names an interpreter that matches PATTERN.
scripts_of() { # SUFFIX PATTERN
    project_files "*$1" | tr '\0' '\n'
    (cd "$ROOT" && project_files '*' | xargs -0 awk -v suffix="$1" -v pattern="$2" '
        FNR == 1 && /^#!/ && $0 ~ pattern &&
            substr(FILENAME, length(FILENAME) - length(suffix) + 1) != suffix { print FILENAME }
        { nextfile }')
}

check_shell() {
    cd "$ROOT" && scripts_of .sh '[/ ](ba|da)?sh( |$)' | xargs -d '\n' shellcheck -x
}

check_python() {
    cd "$ROOT" && scripts_of .py 'python3( |$)' | xargs -d '\n' /usr/bin/python3 -m pyflakes
}

check_rules() {
    "$ROOT/tools/dev/rules.py" "$ROOT"
}

# Subjects of the commits that were not published yet read "area: do this". (What is published
# cannot be mended.)
check_commits() {
    [[ -e $ROOT/.git ]] || return 0
    local bad
    bad=$(git -c safe.directory="$ROOT" -C "$ROOT" log --no-merges --format=%s \
        HEAD --not --remotes | grep -vE '^[a-z][a-z0-9, -]*: [^ ].*[^.]$|^.{81}') || return 0
    printf 'these subjects are not of the form "area: do this":\n%s\n' "$bad"
    return 1
}

lint_stages() {
    stage 'lint: layout of C and C++ (clang-format)' lint-format check_format
    stage 'lint: warnings of clang' lint-clang build clang
    stage 'lint: clang-tidy' lint-tidy check_tidy
    stage 'lint: shell scripts (shellcheck)' lint-shell check_shell
    stage 'lint: Python (pyflakes)' lint-python check_python
    stage 'lint: rules of the house' lint-rules check_rules
    stage 'lint: commit subjects' lint-commits check_commits
}
