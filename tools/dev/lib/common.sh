# What every ./dev command uses: messages, Debian packages, builds.
# shellcheck shell=bash
: "${ROOT:?}" "${BUILD:?}"

say() { printf 'dev: %s\n' "$*" >&2; }

die() {
    say "$*"
    exit 1
}

# The folder of everything that is built, made when it is not there yet.
build_folder() {
    if ! mkdir -p "$BUILD" 2>/dev/null || [[ ! -w $BUILD ]]; then
        die "cannot write to $BUILD (made by another user? then remove it as that user)"
    fi
}

# Runs a command as root: directly, or through sudo.
as_root() {
    if ((EUID == 0)); then
        "$@"
    else
        sudo "$@"
    fi
}

# Fills the array `packages` with what tools/packages lists for the named groups.
packages_of() {
    local group rest words
    packages=()
    while IFS=: read -r group rest; do
        if [[ " $* " == *" $group "* ]]; then
            read -ra words <<<"$rest"
            packages+=("${words[@]}")
        fi
    done <"$ROOT/tools/packages"
}

# Fills the array `missing` with those of the array `packages` that are not installed.
packages_missing() {
    local installed name
    # It fails when it does not know one of them, but lists the others.
    installed=" $(dpkg-query -W -f='${db:Status-Status}=${Package} ' "${packages[@]}" \
        2>/dev/null || true)"
    missing=()
    for name in "${packages[@]}"; do
        [[ $installed == *" installed=$name "* ]] || missing+=("$name")
    done
}

# What root does to install the packages that are its arguments. Services that come along (a web
# server, say, for the tests) are not started.
INSTALL_SCRIPT='
    apt-get -q update || exit
    policy=/usr/sbin/policy-rc.d
    if [ ! -e $policy ]; then
        trap "rm -f $policy" EXIT
        printf "#!/bin/sh\nexit 101\n" >$policy
        chmod 755 $policy
    fi
    DEBIAN_FRONTEND=noninteractive apt-get -qy install --no-install-recommends "$@"
'

packages_install() {
    local log=$BUILD/packages.log
    command -v apt-get >/dev/null ||
        die "these Debian packages are needed and there is no apt-get here: $*"
    ((EUID == 0)) || command -v sudo >/dev/null ||
        die "not root and no sudo here; as root run: apt-get install --no-install-recommends $*"
    say "installing these Debian packages, once: $*"
    as_root sh -c "$INSTALL_SCRIPT" sh "$@" >"$log" 2>&1 && return
    tail -n 15 "$log" >&2
    die "the packages could not be installed; the whole output is in $log"
}

# Makes sure that the packages of the named groups are installed. The stamp holds the list that was
# found complete, so that the next run asks dpkg only after the list or dpkg's own state changed.
packages_need() {
    local packages missing groups="$*"
    local stamp=$BUILD/.packages-${groups// /-}
    packages_of "$@"
    if [[ -f $stamp && ! /var/lib/dpkg/status -nt $stamp ]]; then
        [[ $(<"$stamp") != "$HOSTNAME: ${packages[*]}" ]] || return 0
    fi
    build_folder
    packages_missing
    ((${#missing[@]} == 0)) || packages_install "${missing[@]}"
    printf '%s\n' "$HOSTNAME: ${packages[*]}" >"$stamp"
}

# Fills the array `options` with how CMake configures the build folder build/NAME.
configure_options() {
    case $1 in
        debug | release | asan | fuzz | armhf | mipsel | mips | musl) options=(--preset "$1") ;;
        types) # A char without sign, and a time_t of 64 bits on a 32-bit machine.
            options=(--preset armhf -B "$BUILD/$1" -DCPECTL_UNSIGNED_CHAR=ON -DCPECTL_TIME64=ON) ;;
        unit) # Only the unit tests, with the flags of the release.
            options=(--preset release -B "$BUILD/$1" -DCPECTL_TESTS=ON -DCPECTL_PROGRAM_DIR=
                -DCPECTL_PLATFORM_LIBS=OFF -DCPECTL_GATEWAY=OFF) ;;
        clang)
            options=(--preset debug -B "$BUILD/$1" -DCMAKE_C_COMPILER=clang
                -DCMAKE_CXX_COMPILER=clang++) ;;
        coverage) # Only the program: it runs beside the release's libraries.
            options=(--preset debug -B "$BUILD/$1" -DCPECTL_PLATFORM_LIBS=OFF -DCPECTL_GATEWAY=OFF
                "-DCMAKE_C_FLAGS=--coverage -fprofile-abs-path"
                "-DCMAKE_CXX_FLAGS=--coverage -fprofile-abs-path") ;;
        *) die "there is no build '$1'" ;;
    esac
}

# Configures build/NAME when that was not done yet for this place, with these options and presets.
configure() {
    local options stamp=$BUILD/$1/.configured
    configure_options "$1"
    if [[ -f $stamp && $(<"$stamp") == "$ROOT: ${options[*]}" ]]; then
        [[ $ROOT/CMakePresets.json -nt $stamp ]] || return 0
    else
        rm -rf "${BUILD:?}/$1"
        mkdir -p "$BUILD/$1"
        say "building build/$1 from nothing"
    fi
    # The presets name folders from the place where cmake is started.
    (cd "$ROOT" && cmake "${options[@]}") >"$BUILD/$1/configure.log" 2>&1 || {
        cat "$BUILD/$1/configure.log" >&2
        return 1
    }
    printf '%s\n' "$ROOT: ${options[*]}" >"$stamp"
}

# Brings build/NAME up to date; what ninja says is only worth showing when it fails. One at a time:
# two builds of one folder would meet in its files.
build() {
    local log=$BUILD/$1/build.log
    build_folder
    (
        flock 9
        configure "$1" || exit
        ninja -C "$BUILD/$1" >"$log" 2>&1 || {
            grep -vE '^\[[0-9]+/[0-9]+\] ' "$log" >&2
            exit 1
        }
    ) 9>"$BUILD/.lock-$1"
}
