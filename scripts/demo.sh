# shellcheck shell=bash

demo_recordings() {
    need sound-theme-freedesktop noiz2sa-data
    local voices=/usr/share/sounds/freedesktop/stereo
    local music=/usr/share/games/noiz2sa/sounds/stg00.ogg
    # The music steps back for each voice, returns, and fades out at the end.
    local ducking=volume=3s:-24dB,volume=9.2s:-14dB,volume=9.7s:-8dB
    local fade=volume=19s:-10dB,volume=19.5s:-13dB,volume=20s:-17dB,volume=20.5s:-22dB
    fade+=,volume=21s:-28dB,volume=21.5s:-36dB,volume=21.9s:0
    DEMO_INPUTS=(
        "$music@length=22,gain=-8dB,$ducking,$fade"
        "$voices/service-login.oga@start=0.3,gain=-6dB"
        "$voices/audio-channel-front-left.oga@start=3.4,gain=-3dB,balance=-0.9"
        "$voices/audio-channel-front-right.oga@start=5.4,gain=-3dB,balance=0.9"
        "$voices/audio-channel-front-center.oga@start=7.4,gain=-3dB"
        "$voices/camera-shutter.oga@start=11,gain=-6dB,balance=0.6"
        "$voices/phone-outgoing-calling.oga@start=13,gain=-9dB,balance=-0.6"
        "$voices/complete.oga@start=16,gain=-6dB"
    )
}

# demo_inputs INPUT... : as the caller means them, wherever ./dev was called.
demo_inputs() {
    DEMO_INPUTS=()
    local input
    for input in "$@"; do
        case $input in
        /* | -*) ;;
        *) [ "$CALLER" = "$PWD" ] || input=$CALLER/$input ;;
        esac
        DEMO_INPUTS+=("$input")
    done
}

# demo_next NAME... : how to hear and see the results.
demo_next() {
    local there=. name
    [ "$CALLER" = "$PWD" ] || there=$PWD
    printf '\nTo hear and see it:\n'
    for name in "$@"; do
        printf '  %s/%s/bin/streamproxy play %s/out/%s.wav\n' "$there" "$BUILD_DIR" "$there" "$name"
        printf '  xdg-open %s/out/%s.html\n' "$there" "$name"
    done
}

verb_demo() {
    need_build
    build release -DSTREAMPROXY_BUILD_TESTS=OFF
    local options=(-o out/demo.wav --report out/demo.html)
    mkdir -p out
    if [ $# -gt 0 ]; then
        demo_inputs "$@"
    else
        demo_recordings
        options+=(--rate 44100)
    fi
    say "mixing"
    "$BUILD_DIR/bin/streamproxy" mix "${DEMO_INPUTS[@]}" "${options[@]}"
    if [ $# -eq 0 ]; then
        cat <<'EOF'

The mix is out/demo.wav: eight recordings of 8 to 96 kHz, mono and stereo, in 44.1 kHz stereo.
What went on in it is out/demo.html, for any browser: waveforms, levels, gains, blocks, their times.
Listen for:
   0 s  music (44.1 kHz) and a login chime (22.05 kHz) from the first moment on
   3 s  the music steps back; a voice (48 kHz mono) says "front left" on the left, "front right"
        on the right, "front center" in the middle; behind it the music returns in two steps
  11 s  a camera shutter (96 kHz) right of the middle
  13 s  a telephone ringing out (8 kHz mono) left of the middle
  16 s  a last chime (44.1 kHz); from 19 s on the music fades away
EOF
        demo_tunnel out "$BUILD_DIR/bin/streamproxy"
        cat <<'EOF'

The mix is out/tunnel.wav, the picture out/tunnel.svg, the whole course out/tunnel.html.
Listen for music from the tunnel stream and a voice from a plain stream, over and over. At 5 s the
clock jumps ahead by 400 ms: the music skips to catch up, the voice goes on undisturbed.
Look for the audio lead: it falls out of the green band at 5 s, red marks show audio being dropped,
and it is back inside at once.
EOF
        demo_next demo tunnel
    else
        printf '\nThe mix is out/demo.wav, what went on in it out/demo.html.\n'
        demo_next demo
    fi
}

# demo_tunnel FOLDER TOOL... : a tunnel stream with a plain one beside it, while the AV-sync clock
# jumps once.
demo_tunnel() {
    local tunnel=$1/tunnel tool=("${@:2}")
    local music=/usr/share/games/noiz2sa/sounds/stg00.ogg
    local voice=/usr/share/sounds/freedesktop/stereo/audio-channel-front-center.oga
    say "a tunnel stream"
    "${tool[@]}" hwsync pack "$music" -o "$tunnel.hws" --length 12s --quiet
    "${tool[@]}" hwsync inspect "$tunnel.hws" --rate 44100 --summary
    say "replaying its 12 s in virtual time"
    "${tool[@]}" hwsync replay "$tunnel.hws" --rate 44100 --gain 0.4 --event 5s:jump=+400ms \
        --beside "$voice@gain=-6dB,loop=12" -o "$tunnel.wav" --svg "$tunnel.svg" \
        --report "$tunnel.html" --summary || [ $? -eq 3 ] # a busy machine
}
