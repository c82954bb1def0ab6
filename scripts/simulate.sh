# shellcheck shell=bash
# ./dev simulate [SEEDS [FROM]] : random hosts in virtual time, see fuzz/simulate/.

verb_simulate() {
    need_build
    TARGET=streamproxy_simulate build release
    forget simulate
    say "simulating ${1:-10000} hosts"
    "$BUILD_DIR/bin/streamproxy_simulate" "${1:-10000}" "${2:-1}" |
        tee build/simulate.log || die "simulate: the commands above repeat what failed"
    record simulate "$(tr '\r' '\n' <build/simulate.log | grep 'virtual hours' | tail -n 1)"
}
