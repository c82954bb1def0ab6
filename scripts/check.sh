# shellcheck shell=bash

sources() {
    find . \( -path './build*' -o -path ./out -o -path ./.git \) -prune -o \
        -type f \( -name '*.h' -o -name '*.c' -o -name '*.cpp' \) -print | sort
}

check_format() {
    say "formatting"
    sources | xargs clang-format --dry-run -Werror
}

check_exports() {
    say "exported symbols"
    diff <(sed -n '/global:/,/local:/s/^ *\([a-z_]*\);.*/\1/p' interface/streamproxy.map | sort) \
        <(nm -D --defined-only "$BUILD_DIR/lib/libstreamproxy.so" | awk '{ print $3 }' | sort) ||
        die "libstreamproxy.so exports other symbols than interface/streamproxy.map lists"
}

check_header() {
    say "the public header as C11 and C++17"
    local header=interface/streamproxy.h strict=(-Wall -Wextra -Wpedantic -Werror -fsyntax-only)
    local cc cxx
    for cc in gcc clang; do
        "$cc" -x c -std=c11 "${strict[@]}" - <<<"#include \"$header\"" -I.
    done
    for cxx in g++ clang++; do
        "$cxx" -x c++ -std=c++17 "${strict[@]}" - <<<"#include \"$header\"" -I.
    done
}

# progress TOTAL : counts the files that go by, in one line on a terminal, else in a few.
progress() {
    local step=25 end='\n'
    if [ -t 2 ]; then step=1 end='\r'; fi
    awk -v total="$1" -v step="$step" -v end="$end" '
        /^clang-tidy/ && ++count % step == 0 {
            printf "   %d of %d files%s", count, total, end > "/dev/stderr"
        }'
    [ ! -t 2 ] || printf '\n' >&2
}

check_tidy() {
    say "static analysis of $BUILD_DIR"
    local log
    log=$(mktemp)
    if ! PYTHONUNBUFFERED=1 run-clang-tidy -quiet -j "$JOBS" -p "$BUILD_DIR" 2>/dev/null |
        tee "$log" | progress "$(grep -c '"file":' "$BUILD_DIR/compile_commands.json")"; then
        grep -vE '^clang-tidy|^$' "$log" | head -n 100 >&2
        rm -f "$log"
        die "clang-tidy has complaints"
    fi
    rm -f "$log"
}

verb_check() {
    need_build
    need_tests
    need clang clang-format clang-tidy libclang-rt-14-dev libc++-dev libc++abi-dev shellcheck
    check_format
    say "shell scripts"
    shellcheck -x dev .ci/run scripts/*.sh tests/tools/*.sh tools/completion/*.bash
    check_header
    CC=gcc CXX=g++ STDLIB='' build release -DSTREAMPROXY_BUILD_TESTS=ON
    check_exports
    # For their warnings and their standard library: unoptimised takes a third of the time.
    CC=clang CXX=clang++ STDLIB=libc++ build debug -DSTREAMPROXY_BUILD_TESTS=OFF
    CC=clang CXX=clang++ STDLIB='' build debug -DSTREAMPROXY_BUILD_TESTS=ON
    check_tidy
    say "all checks passed"
}
