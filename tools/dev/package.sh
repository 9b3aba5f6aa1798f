# help: package debian -- builds the Debian packages and runs lintian on them
# help: package openwrt -- packs a feed for OpenWrt that holds the sources as well
# shellcheck shell=bash

# A copy of the tree without what is built: packaging writes beside the sources.
copy_tree() { # FOLDER
    rm -rf "${1:?}"
    mkdir -p "$1"
    tar -C "$ROOT" --exclude=./build --exclude=./.git --exclude=__pycache__ -cf - . |
        tar -C "$1" -xf -
}

package_debian() {
    packages_need build package
    local folder=$BUILD/package/debian
    rm -rf "${folder:?}"
    copy_tree "$folder/cpectl"
    say "building the packages; what is said goes to build/package/debian/build.log"
    (cd "$folder/cpectl" && dpkg-buildpackage -us -uc -b) >"$folder/build.log" 2>&1 || {
        tail -n 20 "$folder/build.log" >&2
        return 1
    }
    rm -rf "$folder/cpectl"
    mkdir "$folder/tmp" # lintian leaves files behind
    TMPDIR=$folder/tmp lintian --allow-root --fail-on error "$folder"/*.changes || return
    rm -rf "${folder:?}/tmp"
    ls "$folder"/*.deb
}

package_openwrt() {
    local folder=$BUILD/package/openwrt
    rm -rf "${folder:?}"
    mkdir -p "$folder/feed"
    cp -R "$ROOT/package/openwrt/cpectl" "$folder/feed/cpectl"
    copy_tree "$folder/feed/cpectl/src"
    tar -C "$folder" --owner=0 --group=0 --sort=name -cJf "$folder/cpectl-feed.tar.xz" feed
    rm -rf "$folder/feed"
    echo "$folder/cpectl-feed.tar.xz"
}

build_folder
case ${1-} in
    debian | openwrt) "package_$1" ;;
    *) die "usage: ./dev package debian|openwrt" ;;
esac
