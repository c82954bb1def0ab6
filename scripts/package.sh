# shellcheck shell=bash
# ./dev package : what others get. Makes the Debian packages; then hosts that see nothing of this
# tree are built and run with an installation, with the same one moved elsewhere, and with the
# packages.

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

# unpack PACKAGE : into a folder of its own, and into one with the others.
unpack() {
    local file
    for file in "$WORK/unpacked/$1" "$WORK/unpacked/all"; do
        mkdir -p "$file"
        dpkg-deb -x "$(file_of "$1")" "$file"
    done
}

file_of() { printf '%s\n' out/"$1_$VERSION"-*.deb; }

# holds PACKAGE PATH... : these, below /usr, are in it.
holds() {
    local package=$1 path
    shift
    for path in "$@"; do
        # A link to a file of another package leads nowhere here.
        [ -e "$WORK/unpacked/$package/usr/$path" ] || [ -L "$WORK/unpacked/$package/usr/$path" ] ||
            die "$package: has no /usr/$path"
    done
}

# depends_on PACKAGE NAME... : on these, and of this tree's packages on no other.
depends_on() {
    local package=$1 depends field
    shift
    depends=", $(dpkg-deb -f "$(file_of "$package")" Depends),"
    for field in "$@"; do
        [[ $depends = *", $field"[\ ,]* ]] || die "$package: does not depend on $field, only on$depends"
        depends=${depends/, $field/}
    done
    [[ $depends != *streamproxy* ]] || die "$package: depends on too much:$depends"
}

check_package() {
    local file field
    file=$(file_of "$1")
    for field in Description Maintainer Section; do
        [ -n "$(dpkg-deb -f "$file" $field)" ] || die "$file: has no $field"
    done
    field=$(dpkg-deb -c "$file" | grep -vE '^[-dl]rw[-x]r.[-x]r.[-x] root/root .* \./(usr/.*)?$') &&
        die "$file: not root's, not readable to all, or outside /usr:"$'\n'"$field"
    unpack "$1"
    ! find "$WORK/unpacked/$1" -type d -empty | grep . >&2 || die "$file: has empty folders"
    zcat "$WORK/unpacked/$1/usr/share/doc/$1/changelog.Debian.gz" >"$WORK/changelog"
    dpkg-parsechangelog -l "$WORK/changelog" >/dev/null || die "$file: its changelog can't be read"
}

check_packages() {
    local lib package name files=()
    lib=lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
    say "checking ${PACKAGES[*]}"
    for package in "${PACKAGES[@]}"; do
        check_package "$package"
        files+=("$(file_of "$package")")
    done
    check_installation "$WORK/unpacked/all" "usr/$lib" ""

    depends_on "$LIBRARY" libc6 libgcc-s1 libstdc++6
    for name in streamproxy streamproxy_platform streamproxy_avsync; do
        holds "$LIBRARY" "$lib/lib$name.so.$VERSION" "$lib/lib$name.so.${VERSION%%.*}"
        holds libstreamproxy-dev "$lib/lib$name.so"
    done
    # Two versions of it can be installed together only without a file that both have.
    ! find "$WORK/unpacked/$LIBRARY" ! -type d ! -path '*.so.*' ! -path "*/doc/$LIBRARY/*" |
        grep . >&2 || die "$LIBRARY: another version of it would have these too"

    depends_on libstreamproxy-dev "$LIBRARY (= $(dpkg-deb -f "${files[0]}" Version))"
    holds libstreamproxy-dev include/streamproxy.h "$lib/pkgconfig/streamproxy.pc" \
        "$lib/cmake/streamproxy/streamproxyConfig.cmake" \
        share/doc/streamproxy/docs/host-guide.md share/doc/streamproxy/examples/host.c

    depends_on streamproxy "$LIBRARY (= $(dpkg-deb -f "${files[0]}" Version))" libc6 libgcc-s1 \
        libsndfile1 libstdc++6
    holds streamproxy bin/streamproxy share/doc/streamproxy/README.md \
        share/man/man1/streamproxy{,-mix,-play,-hwsync}.1.gz \
        share/doc/streamproxy/changelog.gz share/doc/streamproxy/docs/pictures/report.png \
        share/bash-completion/completions/streamproxy
    # Nothing of the tree is there for the reader.
    ! grep -nF ./dev "$WORK/unpacked/streamproxy/usr/share/doc/streamproxy/README.md" >&2 ||
        die "streamproxy: its README names commands of the tree"
    ! readelf -d "$WORK/unpacked/streamproxy/usr/bin/streamproxy" | grep RUNPATH ||
        die "streamproxy: the tool has a runpath"

    # A licence is not chosen yet; and no report asked for the packages.
    lintian --allow-root --fail-on error,warning \
        --suppress-tags no-copyright-file,initial-upload-closes-no-bugs "${files[@]}" >&2 ||
        die "lintian finds faults"
}

installed() {
    dpkg-query -W -f '${db:Status-Abbrev}${Package}\n' "${PACKAGES[@]}" 2>/dev/null |
        sed -n 's/^.[^n] *//p'
}

# try_packages : installs them, and removes them without a trace.
try_packages() {
    local package path new=()
    while read -r path; do
        [ -e "/$path" ] || [ -L "/$path" ] || new+=("/$path")
    done < <(for package in "${PACKAGES[@]}"; do
        dpkg-deb --fsys-tarfile "$(file_of "$package")" | tar -t
    done | sort -u)

    say "installing $LIBRARY and streamproxy"
    INSTALLED=yes
    quietly "can't be installed" dpkg -i "$(file_of "$LIBRARY")" "$(file_of streamproxy)"
    # Read to its end: a grep that stops early would break the pipe, which counts as a failure.
    ldconfig -p | grep 'libstreamproxy\.so\.0 ' >/dev/null || die "the loader does not find the library"
    ! ldconfig -p | grep 'libstreamproxy\.so ' >&2 || die "the name without a version is there already"
    try_tool "without the development files" /usr/bin/streamproxy

    say "installing libstreamproxy-dev"
    quietly "can't be installed" dpkg -i "$(file_of libstreamproxy-dev)"
    try_hosts "the packages"

    say "removing them"
    quietly "can't be removed" dpkg -r "${PACKAGES[@]}"
    INSTALLED=
    ! grep warning "$WORK/log.txt" >&2 || die "they do not go without a word"
    for path in "${new[@]}"; do
        if [ -e "$path" ] || [ -L "$path" ]; then die "removed, but $path is left"; fi
    done
    [ -z "$(installed)" ] || die "removed, but dpkg still knows of: $(installed)"
    ! ldconfig -p | grep libstreamproxy >&2 || die "removed, but the loader still knows of it"
}

clean_up() {
    if [ -n "${INSTALLED:-}" ]; then dpkg -P "${PACKAGES[@]}" >/dev/null; fi
    rm -rf "$WORK"
}

verb_package() {
    need_build
    need binutils dpkg-dev file lintian make
    WORK=$(mktemp -d)
    trap clean_up EXIT
    local prefix="$WORK/first"

    # Last the prefix that one would expect of build/release.
    build_for /usr
    say "packing"
    quietly "cpack failed" cpack --config "$BUILD_DIR/CPackConfig.cmake" -G DEB -B "$WORK/cpack"
    VERSION=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$BUILD_DIR/CMakeCache.txt")
    LIBRARY=libstreamproxy${VERSION%%.*}
    PACKAGES=("$LIBRARY" libstreamproxy-dev streamproxy)
    mkdir -p out
    rm -f out/{lib,}streamproxy*.deb
    cp "$WORK"/cpack/*.deb out/
    build_for /usr/local

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

    check_packages
    if [ "$(id -u)" -ne 0 ]; then
        say "not root: the packages are not installed"
    elif [ -n "$(installed)" ]; then
        die "to try these, remove what is installed: dpkg -P $(installed | paste -sd ' ')"
    else
        try_packages
    fi
    say out/{lib,}streamproxy*.deb
}
