# shellcheck shell=bash
# ./dev coverage : the outcomes of conditions in the library's folders that no test takes must stand,
# each with its reason, in tests/uncovered.txt.

verb_coverage() {
    need_build
    need_tests
    need clang libclang-rt-14-dev llvm python3
    CC='' CXX='' STDLIB='' build coverage -DSTREAMPROXY_BUILD_TESTS=ON
    local profiles=build/coverage/profiles log=build/coverage/tests.log figures
    forget coverage
    rm -rf $profiles
    say "testing $BUILD_DIR"
    # The sample-rate converter is the platform's, and the tests of its flow are long.
    LLVM_PROFILE_FILE=$PWD/$profiles/%m-%p.profraw ctest --test-dir build/coverage -j "$JOBS" \
        --output-on-failure --no-tests=error >$log \
        -E '^Resampler(Flow|Quality|Filter)|^RingModel|^Explorer|InSteadyFlow' || {
        tail -n 100 $log >&2
        die "coverage: tests fail"
    }
    say "reading what was covered"
    llvm-profdata merge -o $profiles/all.profdata $profiles/*.profraw
    # The programs hold some functions in two builds: it warns of that.
    llvm-cov export -instr-profile $profiles/all.profdata build/coverage/bin/streamproxy_tests \
        -object build/coverage/bin/streamproxy_virtual_tests \
        -object build/coverage/lib/libstreamproxy.so >build/coverage/coverage.json 2>/dev/null
    figures=$(python3 scripts/uncovered.py build/coverage/coverage.json tests/uncovered.txt \
        buffer hwsync interface pipeline processor stream sync) || die "coverage: $figures"
    record coverage "$figures"
}
