# shellcheck shell=bash
# ./dev arm64 [--update]: the tests, the demo's mix and the instructions a frame takes, as AArch64
# code under user-mode emulation; --update: only keep those instructions as the table to compare with.

# Fills build/arm64-root with the target's libraries, out of packages of that architecture. They are
# unpacked there, not installed: the machine's own packages stay as they are.
fill_arm64_root() {
    local root=$PWD/build/arm64-root packages=$PWD/build/arm64-packages package
    if [ -e "$root/filled" ]; then return; fi
    say "filling build/arm64-root"
    rm -rf "$root" "$packages"
    mkdir -p "$root" "$packages"/{lists,archives}/partial
    : >"$packages/status"
    local apt=(apt-get -qq -o APT::Architecture=arm64 -o APT::Architectures=arm64
        -o Dir::State="$packages" -o Dir::State::status="$packages/status"
        -o Dir::Cache="$packages" -o APT::Install-Recommends=false -o APT::Sandbox::User=root)
    "${apt[@]}" update
    "${apt[@]}" --download-only --yes install \
        libsndfile1-dev libfftw3-dev libcli11-dev nlohmann-json3-dev libfmt-dev libutfcpp-dev \
        libexpat1-dev >/dev/null
    for package in "$packages"/archives/*.deb; do
        dpkg-deb -x "$package" "$root"
    done
    cmake -S /usr/src/googletest -B build/googletest-arm64 -G Ninja -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/Arm64.cmake" -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
    DESTDIR="$root" cmake --build build/googletest-arm64 -j "$JOBS" --target install >/dev/null
    touch "$root/filled"
}

# check_vectorised OBJECT FUNCTION-PATTERN FUNCTIONS LOOPS
check_vectorised() {
    aarch64-linux-gnu-objdump -d -C --no-show-raw-insn "$1" >build/arm64/listing.txt
    VECTORISED+=$(python3 scripts/vectorised.py build/arm64/listing.txt "${@:2}") ||
        die "$1 is not vectorised on AArch64"
    VECTORISED+=$'\n'
}

# Ogg Vorbis is decoded in floating point, which differs between machines: both mix the same samples.
decode_inputs() {
    local i file
    for i in "${!DEMO_INPUTS[@]}"; do
        file=build/arm64/input$i.wav
        sndfile-convert -pcm24 "${DEMO_INPUTS[i]%%@*}" "$file" >/dev/null
        DEMO_INPUTS[i]=$file@${DEMO_INPUTS[i]#*@}
    done
}

# compare_mixes STEPS FILE... : mixes both ways; no sample differs by more.
compare_mixes() {
    local steps=$1 figures
    shift
    build/release/bin/streamproxy mix "$@" --rate 44100 --quiet -o build/arm64/x86-64.wav
    qemu-aarch64 build/arm64/bin/streamproxy mix "$@" --rate 44100 --quiet -o build/arm64/arm64.wav
    figures=$(/usr/bin/python3 scripts/compare_audio.py "$steps" build/arm64/x86-64.wav \
        build/arm64/arm64.wav) || die "the two machines mix differently: $figures"
    record "arm64-mix-$steps" "$figures"
}

verb_arm64() {
    need_build
    need g++-aarch64-linux-gnu qemu-user googletest python3 python3-soundfile sndfile-programs \
        abigail-tools
    fill_arm64_root
    export QEMU_LD_PREFIX=$PWD/build/arm64-root
    case "${1:-}" in
    '') ;;
    --update)
        CC='' CXX='' STDLIB='' TARGET=bench_instructions build arm64
        python3 scripts/instructions.py update build/arm64/bin/bench_instructions
        return
        ;;
    *) die "arm64: '$1' is not --update" ;;
    esac
    forget arm64 arm64-vectors arm64-instructions arm64-mix-0 arm64-mix-1
    CC='' CXX='' STDLIB='' build arm64 -DSTREAMPROXY_BUILD_TESTS=ON

    say "vector code of the kernels and the resampler"
    local objects=build/arm64/CMakeFiles/streamproxy_objects.dir
    local platform=build/arm64/platform/CMakeFiles/streamproxy_platform.dir
    VECTORISED=
    # Each kernel has a loop for a steady gain and one for a ramp.
    check_vectorised "$objects/processor/VolumeKernels.cpp.o" \
        '^void android::baseline::volumeMix<' 8 2
    check_vectorised "$platform/audio_utils/PolyphaseFilter.cpp.o" \
        '^android::PolyphaseFilter::runPairBaseline' 1 3
    record arm64-vectors "$(awk '{ loops += $1 } END { printf "%d functions, %d vector loops", NR, loops }' \
        <<<"${VECTORISED%$'\n'}")"

    say "instructions a frame"
    local instructions
    instructions=$(python3 scripts/instructions.py check build/arm64/bin/bench_instructions) ||
        die "a frame takes more instructions; ./dev arm64 --update keeps what it takes now"
    record arm64-instructions "$instructions"

    # shellcheck source=scripts/hardening.sh
    . scripts/hardening.sh
    refuse_soft build/arm64
    # shellcheck source=scripts/abi.sh
    . scripts/abi.sh
    check_abi build/arm64

    say "testing build/arm64"
    ctest --test-dir build/arm64 -j "$JOBS" --output-on-failure --no-tests=error
    record arm64 "$(count_tests) tests under emulation"

    say "the demo's mix on both machines"
    # shellcheck source=scripts/demo.sh
    . scripts/demo.sh
    demo_recordings
    decode_inputs
    CC='' CXX='' STDLIB='' TARGET=streamproxy_tool build release
    # These two have the mix's rate: nothing is resampled.
    compare_mixes 0 "${DEMO_INPUTS[0]}" "${DEMO_INPUTS[7]}"
    compare_mixes 1 "${DEMO_INPUTS[@]}"
}
