# shellcheck shell=bash
# ./dev test [PRESET] : the tests; under a sanitizer the demo as well.

verb_test() {
    local preset=${1:-release} run=() options=(-DSTREAMPROXY_BUILD_TESTS=ON)
    case $preset in
    release | debug | asan | tsan) ;;
    *) die "no tests by the name '$preset'; choose release, debug, asan or tsan" ;;
    esac
    need_build
    need_tests
    if [ "${STDLIB:-}" = libc++ ]; then
        options+=(-DCMAKE_PREFIX_PATH="$(build_gtest)")
    fi
    build "$preset" "${options[@]}"
    # The thread sanitizer's fixed address map fails where the kernel spreads addresses widely.
    if [ "$preset" = tsan ] && setarch "$(uname -m)" -R true 2>/dev/null; then
        run=(setarch "$(uname -m)" -R)
    fi
    say "testing $BUILD_DIR"
    forget "${BUILD_DIR#build/}"
    export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:${ASAN_OPTIONS:-}
    export UBSAN_OPTIONS=print_stacktrace=1:${UBSAN_OPTIONS:-}
    export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:${TSAN_OPTIONS:-}
    "${run[@]}" ctest --test-dir "$BUILD_DIR" -j "$JOBS" --output-on-failure --no-tests=error
    case $preset in
    asan | tsan) ;;
    *) return ;;
    esac
    # shellcheck source=scripts/demo.sh
    . scripts/demo.sh
    demo_recordings
    say "the demo, from $BUILD_DIR"
    run+=("$BUILD_DIR/bin/streamproxy")
    "${run[@]}" mix "${DEMO_INPUTS[@]}" --rate 44100 --quiet -o "$BUILD_DIR/demo.wav" \
        --report "$BUILD_DIR/demo.html"
    demo_tunnel "$BUILD_DIR" "${run[@]}"
    record "${BUILD_DIR#build/}" "$(count_tests) tests (the examples among them) and the demo: no report"
}
