# shellcheck shell=bash
# ./dev soak [MINUTES [SEED]]

verb_soak() {
    need_build
    need_tests
    TARGET=streamproxy_soak build release -DSTREAMPROXY_BUILD_TESTS=ON
    forget soak
    say "soaking for ${1:-2} minutes"
    "$BUILD_DIR/bin/streamproxy_soak" "${1:-2}" "${2:-1}" | tee build/soak.log
    record soak "${1:-2} minutes: $(grep '^frames accepted' build/soak.log)"
}
