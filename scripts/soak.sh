# shellcheck shell=bash
# ./dev soak [MINUTES [SEED]]

verb_soak() {
    need_build
    need_tests
    TARGET=streamproxy_soak build release -DSTREAMPROXY_BUILD_TESTS=ON
    say "soaking for ${1:-2} minutes"
    mkdir -p out/reliability
    "$BUILD_DIR/bin/streamproxy_soak" "${1:-2}" "${2:-1}" | tee build/soak.log
    tr '\r' '\n' <build/soak.log | grep -vE '^$' | tail -n 3 >out/reliability/soak.txt
}
