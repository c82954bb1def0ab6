# shellcheck shell=bash

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
    ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:${ASAN_OPTIONS:-} \
        UBSAN_OPTIONS=print_stacktrace=1:${UBSAN_OPTIONS:-} \
        TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:${TSAN_OPTIONS:-} \
        "${run[@]}" ctest --test-dir "$BUILD_DIR" --output-on-failure --no-tests=error
}
