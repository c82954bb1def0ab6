# shellcheck shell=bash

# refuse_soft BUILD : what was built there is linked and compiled as cmake/Hardening.cmake says.
refuse_soft() {
    local file headers symbols commands
    forget "hardening-${1#build/}"
    # From a library alone this can't be told: without a copy of bounded size, none is checked.
    commands=$(grep '"command"' "$1/compile_commands.json") || die "$1: no compile commands"
    ! grep -v -- '-D_FORTIFY_SOURCE=2' <<<"$commands" >&2 ||
        die "$1: compiled without fortified functions"
    for file in "$1"/lib/libstreamproxy{,_platform,_avsync}.so "$1/bin/streamproxy"; do
        headers=$(readelf -W -l -d "$file")
        symbols=$(readelf -W --dyn-syms "$file")
        grep -q GNU_RELRO <<<"$headers" || die "$file: no read-only relocations (-z relro)"
        grep -qE 'BIND_NOW|\(FLAGS_1\).*NOW' <<<"$headers" || die "$file: binds lazily (-z now)"
        grep -qE 'GNU_STACK +0x[0-9a-f]+ 0x[0-9a-f]+ 0x[0-9a-f]+ 0x[0-9a-f]+ 0x[0-9a-f]+ RW ' \
            <<<"$headers" || die "$file: the stack is executable (-z noexecstack)"
        ! grep -qE '\(TEXTREL\)|FLAGS.*TEXTREL' <<<"$headers" || die "$file: relocates its code"
        grep -q __stack_chk_fail <<<"$symbols" || die "$file: no stack protector"
    done
    grep -qE '__[a-z]+_chk@' <<<"$symbols" || die "$1/bin/streamproxy: no fortified function"
    record "hardening-${1#build/}" "four files, nothing soft"
}

verb_hardening() {
    need_build
    need_tests
    need binutils
    build release
    refuse_soft "$BUILD_DIR"
}
