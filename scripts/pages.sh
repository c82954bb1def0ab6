# shellcheck shell=bash
# ./dev pages : the reports of a mix and of a replay in a real browser.

verb_pages() {
    need_build
    need chromium chromium-driver python3-selenium fonts-dejavu-core
    # shellcheck source=scripts/demo.sh
    . scripts/demo.sh
    demo_recordings
    TARGET=streamproxy_tool build release
    local out=out/pages program=$BUILD_DIR/bin/streamproxy figures
    rm -rf $out
    mkdir -p $out
    forget pages
    say "making reports"
    "$program" mix "${DEMO_INPUTS[@]}" --rate 44100 --quiet -o $out/mix.wav --report $out/mix.html
    "$program" hwsync pack "${DEMO_INPUTS[0]%%@*}" -o $out/tunnel.hws --length 12s \
        --free-run 10s:11s --gap 7s:100ms --fault garbage=3 --quiet
    "$program" hwsync replay $out/tunnel.hws --rate 44100 --gain 0.4 --quiet --summary \
        --event 3s:jump=+400ms --event 6s:jump=-400ms --event 8s:jump=+2s \
        --beside "${DEMO_INPUTS[4]%%@*}@gain=-6dB,start=1,loop=6,volume=5s:0.2" \
        -o $out/tunnel.wav --report $out/replay.html >/dev/null || [ $? -eq 3 ] # a busy machine
    say "opening them"
    # The system's interpreter: it has the Debian package.
    figures=$(/usr/bin/python3 scripts/pages.py $out/mix.html $out/replay.html) ||
        die "pages: $figures"
    record pages "$figures"
    say "screenshots are in $out"
}
