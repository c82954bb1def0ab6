# shellcheck shell=bash
# ./dev docs : what README, docs/, --help and the manual pages tell to run is run, and held against
# the program's options.

verb_docs() {
    need_build
    need_tests
    need doxygen ffmpeg jq man-db mandoc noiz2sa-data python3-markdown-it sox
    forget docs
    CC='' CXX='' STDLIB='' build release -DSTREAMPROXY_BUILD_TESTS=ON
    local scratch figures
    scratch=$(mktemp -d)
    say "what the documentation tells to run"
    if ! figures=$(/usr/bin/python3 -B scripts/docs.py "$BUILD_DIR" "$scratch"); then
        rm -rf "$scratch"
        die "the documentation does not hold"
    fi
    rm -rf "$scratch"
    record docs "$figures"
}
