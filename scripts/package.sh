# shellcheck shell=bash
# ./dev package : what others get. Makes the Debian package; then hosts that see nothing of this
# tree are built and run with an installation, with the same one moved elsewhere, and with the
# package.

# build_for PREFIX : most folders and the runpath are settled by the prefix.
build_for() {
    CC='' CXX='' STDLIB='' TARGET=streamproxy_tool build release -DCMAKE_INSTALL_PREFIX="$1"
}

# quietly WHAT COMMAND... : its output only where it fails.
quietly() {
    local what=$1
    shift
    "$@" >"$WORK/log.txt" 2>&1 || {
        tail -n 40 "$WORK/log.txt" >&2
        die "$what"
    }
}

# try_hosts NAME [PREFIX] : without a prefix, everything has to be found where the system looks.
try_hosts() {
    local name=$1 prefix=${2:-} dir=$WORK/hosts
    say "hosts with $name"
    rm -rf "$dir"
    mkdir "$dir"
    cp tests/package/* examples/host.c examples/host.cpp "$dir"
    (
        unset PKG_CONFIG_PATH CMAKE_PREFIX_PATH LD_LIBRARY_PATH
        if [ -n "$prefix" ]; then
            export PKG_CONFIG_PATH=$prefix/lib/pkgconfig CMAKE_PREFIX_PATH=$prefix
        fi
        quietly "pkg-config, $name: hosts don't build or run" make -C "$dir" run
        quietly "find_package, $name: hosts don't configure" \
            cmake -G Ninja -S "$dir" -B "$dir/build"
        quietly "find_package, $name: hosts don't build" cmake --build "$dir/build" -j "$JOBS"
        quietly "find_package, $name: hosts don't run" cmake --build "$dir/build" --target run
    )
    quietly "find_package, $name: found another installation" \
        grep "^streamproxy_DIR:PATH=${prefix:-/usr}/lib/" "$dir/build/CMakeCache.txt"
}

# try_tool NAME PROGRAM : half a second of silence through the library it finds.
try_tool() {
    {
        printf 'RIFF\x24\x77\x01\0WAVEfmt \x10\0\0\0\x01\0\x02\0\x80\xbb\0\0\0\xee\x02\0\x04\0'
        printf '\x10\0data\0\x77\x01\0'
        head -c 96000 /dev/zero
    } >"$WORK/silence.wav"
    rm -f "$WORK/mix.wav"
    quietly "$2: does not run" "$2" mix "$WORK/silence.wav" -o "$WORK/mix.wav"
    [ "$(stat -c %s "$WORK/mix.wav")" -ge 96044 ] || die "$1: the tool mixes too little"
}

# refuse_traces FOLDER : nothing names the tree it was built in.
refuse_traces() {
    ! grep -rlF -- "$PWD/" "$1" >&2 || die "these name the folder they were built in"
}

# check_installation FOLDER LIBDIR RUNPATH : the libraries lie there under their three names.
check_installation() {
    local name file runpath
    for name in streamproxy streamproxy_platform streamproxy_avsync; do
        file=$1/$2/lib$name.so
        if [ "$(readlink "$file.0")" != "lib$name.so.$VERSION" ] || [ ! -e "$file" ]; then
            die "$file: the names with and without version don't lead to lib$name.so.$VERSION"
        fi
        runpath=$(readelf -d "$file" | sed -n 's/.*(RUNPATH).*\[\(.*\)\]/\1/p')
        [ "$runpath" = "$3" ] || die "$file: its runpath is '$runpath', not '$3'"
    done
    # shellcheck source=scripts/check.sh
    . scripts/check.sh
    mkdir -p "$WORK/exports"
    ln -sfn "$1/$2" "$WORK/exports/lib"
    BUILD_DIR=$WORK/exports check_exports
    refuse_traces "$1"
}

# check_package FILE
check_package() {
    local root=$WORK/unpacked depends field
    say "checking $1"
    depends=$(dpkg-deb -f "$1" Depends)
    for field in libc6 libgcc-s1 libsndfile1 libstdc++6; do
        [[ ", $depends" = *", $field "* ]] || die "$1: does not depend on $field, only on: $depends"
    done
    [[ $depends != *streamproxy* ]] || die "$1: depends on itself: $depends"
    for field in Description Maintainer Section; do
        [ -n "$(dpkg-deb -f "$1" $field)" ] || die "$1: has no $field"
    done
    field=$(dpkg-deb -c "$1" | grep -vE '^[-dl]rw[-x]r.[-x]r.[-x] root/root .* \./(usr/.*)?$') &&
        die "$1: not root's, not readable to all, or outside /usr:"$'\n'"$field"
    rm -rf "$root"
    dpkg-deb -x "$1" "$root"
    ! find "$root" -type d -empty | grep . >&2 || die "$1: has empty folders"
    check_installation "$root" "usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)" ""
    for field in bin/streamproxy include/streamproxy.h share/doc/streamproxy/README.md \
        share/man/man1/streamproxy{,-mix,-play,-hwsync}.1.gz \
        share/doc/streamproxy/changelog.gz share/doc/streamproxy/docs/pictures/report.png \
        share/bash-completion/completions/streamproxy; do
        [ -e "$root/usr/$field" ] || die "$1: has no /usr/$field"
    done
    zcat "$root/usr/share/doc/streamproxy/changelog.Debian.gz" >"$WORK/changelog"
    dpkg-parsechangelog -l "$WORK/changelog" >/dev/null || die "$1: its changelog can't be read"
    # Nothing of the tree is there for the reader.
    ! grep -nF ./dev "$root/usr/share/doc/streamproxy/README.md" >&2 ||
        die "$1: its README names commands of the tree"
    ! readelf -d "$root/usr/bin/streamproxy" | grep RUNPATH || die "$1: the tool has a runpath"
}

is_installed() {
    dpkg-query -W -f '${db:Status-Abbrev}' streamproxy 2>/dev/null | grep -q '^.[^n]'
}

# try_package FILE : installs it, and removes it without a trace.
try_package() {
    local path new=()
    while read -r path; do
        [ -e "/$path" ] || new+=("/$path")
    done < <(dpkg-deb --fsys-tarfile "$1" | tar -t)

    say "installing $1"
    INSTALLED=yes
    quietly "$1: can't be installed" dpkg -i "$1"
    # Read to its end: a grep that stops early would break the pipe, which counts as a failure.
    ldconfig -p | grep 'libstreamproxy\.so\.0 ' >/dev/null || die "the loader does not find the library"
    try_tool "the package" /usr/bin/streamproxy
    try_hosts "the package"

    say "removing it"
    quietly "can't be removed" dpkg -r streamproxy
    INSTALLED=
    ! grep warning "$WORK/log.txt" >&2 || die "it does not go without a word"
    for path in "${new[@]}"; do
        [ ! -e "$path" ] || die "removed, but it leaves $path"
    done
    ! is_installed || die "removed, but dpkg still knows of it"
    ! ldconfig -p | grep libstreamproxy >&2 || die "removed, but the loader still knows of it"
}

clean_up() {
    if [ -n "${INSTALLED:-}" ]; then dpkg -P streamproxy >/dev/null; fi
    rm -rf "$WORK"
}

verb_package() {
    need_build
    need binutils dpkg-dev file make
    WORK=$(mktemp -d)
    trap clean_up EXIT
    local prefix=$WORK/first package

    # Last the prefix that one would expect of build/release.
    build_for /usr
    say "packing"
    quietly "cpack failed" cpack --config "$BUILD_DIR/CPackConfig.cmake" -G DEB -B "$WORK/cpack"
    mkdir -p out
    cp "$WORK"/cpack/streamproxy_*.deb out/
    package=out/$(basename "$WORK"/cpack/streamproxy_*.deb)
    build_for /usr/local
    VERSION=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$BUILD_DIR/CMakeCache.txt")

    say "installing to a prefix of its own"
    quietly "cmake --install failed" cmake --install "$BUILD_DIR" --strip --prefix "$prefix"
    # shellcheck disable=SC2016 # the loader's word, not the shell's
    check_installation "$prefix" lib '$ORIGIN'
    try_tool "the prefix" "$prefix/bin/streamproxy"
    try_hosts "the prefix" "$prefix"
    mv "$prefix" "$WORK/second place"
    prefix="$WORK/second place"
    try_tool "the moved prefix" "$prefix/bin/streamproxy"
    try_hosts "the moved prefix" "$prefix"

    check_package "$package"
    if [ "$(id -u)" -ne 0 ]; then
        say "not root: $package is not installed"
    elif is_installed; then
        die "a package streamproxy is installed; to try this one, remove it: dpkg -P streamproxy"
    else
        try_package "$package"
    fi
    say "$package"
}
