# shellcheck shell=bash
# ./dev abi [--update] : what hosts hold on to is as interface/streamproxy.abi says.

# describe_abi BUILD FILE
describe_abi() {
    local version name
    version=$(readlink -f "$1/lib/libstreamproxy.so")
    for name in streamproxy streamproxy_avsync; do
        abidw --load-all-types --no-corpus-path --no-comp-dir-path --no-show-locs \
            --out-file "$1/$name.xml" "$1/lib/lib$name.so"
    done
    python3 scripts/abi_description.py "${version##*.so.}" "$1"/streamproxy{,_avsync}.xml >"$2"
}

# check_abi BUILD
check_abi() {
    forget "abi-${1#build/}"
    describe_abi "$1" "$1/streamproxy.abi"
    diff -u --label interface/streamproxy.abi --label "$1" interface/streamproxy.abi \
        "$1/streamproxy.abi" >&2 ||
        die "the interface has changed. Hosts that were built before break; where that is meant,
  raise the library's major version and run: ./dev abi --update"
    record "abi-${1#build/}" "$(grep -c '^class' "$1/streamproxy.abi") classes, $(
        grep -c '^exports' "$1/streamproxy.abi"
    ) functions as interface/streamproxy.abi says"
}

verb_abi() {
    need_build
    need_tests
    need abigail-tools python3 binutils
    CC='' CXX='' STDLIB='' TARGET=streamproxy build release
    if [ "${1:-}" = --update ]; then
        describe_abi "$BUILD_DIR" "$BUILD_DIR/streamproxy.abi"
        cp "$BUILD_DIR/streamproxy.abi" interface/streamproxy.abi
    else
        check_abi "$BUILD_DIR"
    fi
}
