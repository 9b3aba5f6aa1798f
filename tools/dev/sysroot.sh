#!/usr/bin/env bash
# Makes the sysroot of one cross target in build/sysroot/TARGET: nothing of it is installed on this
# machine. armhf and mipsel are architectures of Debian, and theirs hold its packages. For mips
# Debian has the C library only, for musl not even that: the other libraries are built from
# Debian's sources.
#
#   tools/dev/sysroot.sh armhf|mipsel|mips|musl
set -euo pipefail
cd "$(dirname "$0")/../.."

packages=(libc6-dev libstdc++-12-dev libcjson-dev libcurl4-openssl-dev libgtest-dev libmnl-dev
          libnetfilter-conntrack-dev libnfnetlink-dev libwpa-client-dev linux-libc-dev)
# What the libraries are built from; curl's headers alone serve where nothing can be loaded.
sources_mips=(cjson curl)
sources_musl=(cjson)

target=${1:?which target: armhf, mipsel, mips or musl}
root=$PWD/build/sysroot/$target
log=$PWD/build/sysroot/$target.log
stamp=build/sysroot/$target.made
case $target in
    armhf | mipsel) wanted="3 ${packages[*]}" ;;
    mips) wanted="3 ${sources_mips[*]}" ;;
    musl) wanted="3 ${sources_musl[*]}" ;;
    *) echo "sysroot: there is no target '$target'" >&2 && exit 2 ;;
esac
[ "$(cat "$stamp" 2>/dev/null)" = "$wanted" ] && exit 0

# shellcheck source=tools/dev/lib/archive.sh
source tools/dev/lib/archive.sh
uri=$(debian_archive)
[ -n "$uri" ] || { echo "sysroot: no Debian archive in this machine's apt sources" >&2; exit 1; }
suite=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)

from_packages() {
    local include
    include=$(IFS=,; echo "${packages[*]}")
    mmdebstrap --quiet --arch="$target" --variant=extract --include="$include" "$suite" "$root" \
        "deb $uri $suite main"
    # Only what is compiled and loaded: for programs under qemu, a path of the sysroot hides the
    # same path of the machine.
    find "$root" -mindepth 1 -maxdepth 1 ! -name usr ! -name 'lib*' -exec rm -rf {} +
}

# Unpacks Debian's source packages of these names into build/sources/NAME. The list of sources is
# one of this project's own: the machine's apt keeps its lists as they are.
unpack_sources() { # NAME...
    local folder=$PWD/build/sources name
    local options=(-q -o "Dir::Etc::SourceList=$folder/deb-src.list" -o Dir::Etc::SourceParts=-
                   -o "Dir::State::Lists=$folder/lists" -o "Dir::Cache=$folder/cache"
                   -o APT::Sandbox::User=root)
    mkdir -p "$folder/lists/partial" "$folder/cache/archives/partial"
    echo "deb-src $uri $suite main" >"$folder/deb-src.list"
    apt-get "${options[@]}" update
    for name in "$@"; do
        rm -rf "${folder:?}/$name" "${folder:?}/$name.download"
        mkdir "$folder/$name.download"
        (cd "$folder/$name.download" && apt-get "${options[@]}" --download-only source "$name" &&
            dpkg-source --no-check --extract ./*.dsc "$folder/$name")
    done
}

# cJSON is one file.
cjson_headers() {
    mkdir -p "$root/usr/include/cjson" "$root/usr/lib"
    cp build/sources/cjson/cJSON.h "$root/usr/include/cjson/"
}

mips_cjson() {
    cjson_headers
    mips-linux-gnu-gcc -O2 -fPIC -shared -Wl,-soname,libcjson.so.1 build/sources/cjson/cJSON.c \
        -o "$root/usr/lib/libcjson.so.1" -lm
    ln -sf libcjson.so.1 "$root/usr/lib/libcjson.so"
}

# A libcurl for plain HTTP, which is all that the program asks of it.
mips_curl() {
    local made=build/sources/curl-mips
    rm -rf "$made"
    cmake -S build/sources/curl -B "$made" -G Ninja -DCMAKE_BUILD_TYPE=MinSizeRel \
        -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mips.cmake" -DCMAKE_INSTALL_PREFIX="$root/usr" \
        -DCMAKE_INSTALL_LIBDIR=lib -DBUILD_CURL_EXE=OFF -DHTTP_ONLY=ON -DCURL_ENABLE_SSL=OFF \
        -DCURL_ZLIB=OFF -DUSE_LIBIDN2=OFF -DCURL_USE_LIBPSL=OFF -DCURL_USE_LIBSSH2=OFF \
        -DCURL_BROTLI=OFF -DCURL_ZSTD=OFF -DUSE_NGHTTP2=OFF -DENABLE_MANUAL=OFF \
        -DHAVE_POLL_FINE_EXITCODE=0 -DHAVE_POLL_FINE_EXITCODE__TRYRUN_OUTPUT= \
        -DHAVE_FSETXATTR_5_EXITCODE=0 -DHAVE_FSETXATTR_5_EXITCODE__TRYRUN_OUTPUT=
    ninja -C "$made" install
}

from_sources_mips() {
    mkdir -p "$root/lib"
    unpack_sources "${sources_mips[@]}"
    # Debian's own C library of this target, for running.
    cp -P /usr/mips-linux-gnu/lib/*.so* "$root/lib/"
    mips_cjson
    mips_curl
}

from_sources_musl() {
    unpack_sources "${sources_musl[@]}"
    cjson_headers
    musl-gcc -Os -ffunction-sections -c build/sources/cjson/cJSON.c -o "$root/cJSON.o"
    ar rcs "$root/usr/lib/libcjson.a" "$root/cJSON.o"
    rm "$root/cJSON.o"
    # libcurl's headers do not depend on the C library; nothing of it is linked.
    cp -r "$(dirname "$(find /usr/include -path '*/curl/curl.h' | head -n 1)")" "$root/usr/include/"
}

make_sysroot() {
    case $target in
        armhf | mipsel) from_packages ;;
        *) "from_sources_$target" ;;
    esac
}

echo "sysroot: making build/sysroot/$target"
mkdir -p build/sysroot
rm -rf "$root" "$stamp"
# In a shell of its own that its first failing command ends; in a condition, it would not.
set +e
(set -e; make_sysroot) >"$log" 2>&1
status=$?
set -e
if [ $status -ne 0 ]; then
    tail -n 15 "$log" >&2
    exit 1
fi
echo "$wanted" >"$stamp"
