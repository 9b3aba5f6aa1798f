# help: help -- this list
# shellcheck shell=bash

# The commands in the order of this list, each with the lines "# help: USAGE -- WHAT" of its file.
usage() {
    local name line
    printf 'usage: ./dev COMMAND [...]\n\n'
    for name in run test build gateway coverage lint bench size harden docs package help; do
        [[ -f $ROOT/tools/dev/$name.sh ]] || continue
        while IFS= read -r line; do
            [[ $line == '# help: '* ]] || continue
            line=${line#'# help: '}
            printf '  %-32s %s\n' "${line%% -- *}" "${line#* -- }"
        done <"$ROOT/tools/dev/$name.sh"
    done
}

usage
