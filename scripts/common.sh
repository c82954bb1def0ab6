# shellcheck shell=bash
# What the verbs of ./dev share. Sourced from the root of the tree.

JOBS=${JOBS:-2}
[[ $JOBS =~ ^[1-9][0-9]*$ ]] || JOBS=1

say() { printf '== %s\n' "$*" >&2; }
die() {
    printf './dev: %s\n' "$*" >&2
    exit 1
}

# need PACKAGE... : installs those that are missing.
need() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Abbrev}' "$package" 2>/dev/null | grep -q '^ii' ||
            missing+=("$package")
    done
    if [ ${#missing[@]} -eq 0 ]; then return; fi
    command -v apt-get >/dev/null ||
        die "needs these Debian packages or their like: ${missing[*]}"
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null ||
            die "needs packages; as root, run: apt-get install --no-install-recommends ${missing[*]}"
        as_root=(sudo)
    fi
    local log size
    log=$(mktemp)
    # The lists on a fresh machine are missing or old.
    say "updating the package lists"
    "${as_root[@]}" apt-get update -qq >"$log" 2>&1 || true # what is missing then, installing tells
    size=$(LC_ALL=C "${as_root[@]}" apt-get install --assume-no --no-install-recommends \
        "${missing[@]}" 2>>"$log" | grep -E '^(Need to get|After this)' | paste -sd ' ') || true
    say "installing ${missing[*]}"
    [ -z "$size" ] || say "$size"
    if ! { "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
            --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        rm -f "$log"
        die "apt-get failed; run it yourself: apt-get install --no-install-recommends ${missing[*]}"
    fi
    rm -f "$log"
}

need_build() {
    need cmake g++ ninja-build pkg-config libsndfile1-dev libcli11-dev nlohmann-json3-dev \
        libfmt-dev libutfcpp-dev libasound2-dev
    case "${CXX:-}" in *clang*) need clang libclang-rt-14-dev ;; esac
    if [ "${STDLIB:-}" = libc++ ]; then need libc++-dev libc++abi-dev; fi
}

need_tests() {
    need libgtest-dev libfftw3-dev libexpat1-dev
    (need pulseaudio pulseaudio-utils libasound2-plugins) ||
        say "NO SOUND SERVER: the tests that play on one are skipped"
}

# Debian's GoogleTest speaks the other standard library; build its source with this one.
build_gtest() {
    need googletest
    local dir=build/googletest-libc++
    if [ ! -e $dir/installed ]; then
        cmake -S /usr/src/googletest -B $dir -G Ninja -DCMAKE_CXX_FLAGS=-stdlib=libc++ \
            -DCMAKE_INSTALL_PREFIX="$PWD/$dir/root" -DCMAKE_BUILD_TYPE=Release >&2
        cmake --build $dir -j "$JOBS" --target install >&2
        touch $dir/installed
    fi
    printf '%s' "$PWD/$dir/root"
}

# build PRESET [CMAKE-OPTION...] : builds all, or the target that TARGET names, and sets BUILD_DIR.
build() {
    local preset=$1 options=()
    shift
    BUILD_DIR=build/$preset
    case "${CXX:-}" in *clang*) BUILD_DIR+=-clang ;; esac
    if [ "${STDLIB:-}" = libc++ ]; then
        BUILD_DIR+=-libc++
        options+=(-DCMAKE_CXX_FLAGS=-stdlib=libc++)
    fi
    if command -v ccache >/dev/null; then
        options+=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    fi
    say "building $BUILD_DIR"
    cmake --preset "$preset" -B "$BUILD_DIR" "${options[@]}" "$@" >/dev/null
    cmake --build "$BUILD_DIR" -j "$JOBS" --target "${TARGET:-all}"
}

# record CHECK FIGURES : for the page that ./dev reliability writes.
record() {
    mkdir -p out/reliability
    printf '%s\n' "$2" >"out/reliability/$1.txt"
    say "$1: $2"
}

# forget CHECK... : figures of a former run; a check that fails has none.
forget() {
    local check
    for check in "$@"; do rm -f "out/reliability/$check.txt"; done
}

count_tests() { ctest --test-dir "$BUILD_DIR" -N | sed -n 's/^Total Tests: //p'; }
