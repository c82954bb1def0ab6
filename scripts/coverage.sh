# shellcheck shell=bash
# ./dev coverage : the branches of the six library folders that no test takes must stand, each with
# its reason, in tests/uncovered.txt.

verb_coverage() {
    need_build
    need_tests
    need gcovr python3
    # A call may end by an exception: those branches are the compiler's, not the source's.
    local folders='(buffer|hwsync|interface|pipeline|processor|stream)/'
    local report=build/coverage/coverage.json
    build coverage -DSTREAMPROXY_BUILD_TESTS=ON
    find build/coverage -name '*.gcda' -delete
    say "testing $BUILD_DIR"
    ctest --test-dir build/coverage -j "$JOBS" --output-on-failure --no-tests=error |
        tail -n 5
    say "reading what was covered"
    gcovr -r . build/coverage --filter "$folders" --exclude-throw-branches \
        --exclude-unreachable-branches --json "$report"
    mkdir -p out/reliability
    python3 scripts/uncovered.py "$report" tests/uncovered.txt | tee out/reliability/coverage.txt
}
