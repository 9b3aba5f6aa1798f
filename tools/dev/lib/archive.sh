# Where this machine's own packages come from.
# shellcheck shell=bash

# Prints the Debian archive among the machine's apt sources: the first whose path ends with
# "debian", else the first of all; nothing when there is none.
debian_archive() {
    find /etc/apt -name '*.sources' -o -name '*.list' | sort | xargs cat |
        awk '/^(deb|URIs:) / {
                 for (i = 2; i <= NF; i++)
                     if ($i ~ /^http/ && (!uri || (uri !~ debian && $i ~ debian))) uri = $i
             }
             END {print uri}' debian='/debian/?$'
}
