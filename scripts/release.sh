# shellcheck shell=bash
# ./dev release [--tag] : every place that names the version names this one.

# wrong PLACE... : one more place that does not agree.
wrong() {
    printf '%s\n' "$*" >&2
    RELEASE_FAULTS=$((RELEASE_FAULTS + 1))
}

header_version() {
    sed -n 's/^#define STREAMPROXY_VERSION_[A-Z]* \([0-9]*\)$/\1/p' interface/streamproxy.h |
        paste -sd.
}

check_changelog() {
    local top
    top=$(sed -n 's/^## //p' CHANGELOG.md | head -n 1)
    [[ $top =~ ^"$1 - "[0-9]{4}-[0-9]{2}-[0-9]{2}$ ]] ||
        wrong "CHANGELOG.md: the top entry is '$top'; make it '## $1 - $(date -I)'"
}

# A page may not be older than its text.
check_pages() {
    local page day changed
    for page in docs/man/*.1; do
        day=$(date -d "$(sed -n 's/^\.Dd //p' "$page")" +%F)
        changed=$(git log -1 --date=short --format=%cd -- "$page")
        [[ ! $day < $changed ]] ||
            wrong "$page: .Dd is $day, but the text changed on $changed; set the later day"
        mandoc -T lint -W error "$page" >&2 || wrong "$page: mandoc finds errors"
    done
}

check_library() {
    local lib=$BUILD_DIR/lib file soname
    file=$(basename "$(readlink -f "$lib/libstreamproxy.so")")
    [ "$file" = "libstreamproxy.so.$1" ] ||
        wrong "$lib: the library is $file; build again after a change of interface/streamproxy.h"
    soname=$(objdump -p "$lib/libstreamproxy.so" | sed -n 's/^ *SONAME *//p')
    [ "$soname" = "libstreamproxy.so.${1%%.*}" ] || wrong "$lib: the soname is $soname"
    (check_abi "$BUILD_DIR") || wrong "interface/streamproxy.abi: see above"
    grep -q "^library $soname version $1\$" interface/streamproxy.abi ||
        wrong "interface/streamproxy.abi: names another version; run: ./dev abi --update"
}

check_packages() {
    local deb version
    rm -rf "$BUILD_DIR/release-package"
    cpack --config "$BUILD_DIR/CPackConfig.cmake" -B "$BUILD_DIR/release-package" >/dev/null
    for deb in "$BUILD_DIR"/release-package/*.deb; do
        version=$(dpkg-deb -f "$deb" Version)
        # Behind the hyphen stands the number of the packing.
        [ "${version%-*}" = "$1" ] || wrong "$deb: its version is $version"
    done
}

verb_release() {
    need_build
    need abigail-tools python3 binutils mandoc dpkg-dev git
    # shellcheck source=/dev/null
    . scripts/abi.sh
    local version
    version=$(header_version)
    RELEASE_FAULTS=0
    say "release $version"
    CC='' CXX='' STDLIB='' TARGET=all build release -DSTREAMPROXY_BUILD_TESTS=OFF \
        -DCMAKE_INSTALL_PREFIX=/usr
    check_changelog "$version"
    check_pages
    check_library "$version"
    check_packages "$version"
    [ -z "$(git status --porcelain)" ] || wrong "the tree: commit what has changed"
    [ -z "$(git tag -l "v$version")" ] || wrong "v$version: the tag exists; raise the version"
    [ "$RELEASE_FAULTS" -eq 0 ] || die "$RELEASE_FAULTS places do not agree with version $version"
    say "everything names version $version"
    if [ "${1:-}" = --tag ]; then
        git tag -a "v$version" -m "libstreamproxy $version"
        say "made the tag v$version; push it with: git push origin v$version"
    fi
}
