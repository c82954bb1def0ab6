# shellcheck shell=bash
# ./dev bench [check|update]: ratios to peers, each measured beside its peer in one run; for AVX2 and
# for the baseline instruction set.

BENCH_PROGRAMS=(kernels rings final_stage resampler)

bench_needs() {
    need_build
    need libbenchmark-dev libsdl2-dev libspeexdsp-dev libsoxr-dev libsamplerate0-dev \
        libzita-resampler-dev libswresample-dev libavutil-dev libjack-jackd2-dev libboost-dev \
        libfftw3-dev python3
}

# bench_run PRESET [FILTER] : writes out/bench/PRESET/PROGRAM.json.
bench_run() {
    local preset=$1 filter=${2:-.} program
    CC='' CXX='' STDLIB='' build "$preset"
    mkdir -p "out/bench/$preset"
    for program in "${BENCH_PROGRAMS[@]}"; do
        say "measuring $program ($preset)"
        "$BUILD_DIR/bin/bench_$program" --benchmark_filter="$filter" \
            --benchmark_out_format=json --benchmark_out="out/bench/$preset/$program.json" \
            >/dev/null || die "bench: $program failed; run $BUILD_DIR/bin/bench_$program"
    done
}

verb_bench() {
    case "${1:-}" in
    '' | update)
        bench_needs
        need sox ffmpeg
        bench_run bench
        bench_run bench-baseline
        say "the whole job beside sox and ffmpeg"
        python3 scripts/whole_job.py build/bench/bin/streamproxy out/bench/bench/whole_job.json
        python3 scripts/whole_job.py build/bench-baseline/bin/streamproxy \
            out/bench/bench-baseline/whole_job.json
        python3 scripts/bench.py "${1:-print}" out/bench
        ;;
    check)
        # A few ratios with wide bounds: a loop that lost its vectors is several times slower.
        bench_needs
        rm -rf out/bench/bench
        bench_run bench '^(kernel/.*/900|ring/copy/960|final_stage/8/900|resampler/)'
        python3 scripts/bench.py check out/bench
        ;;
    *) die "bench: '$1' is neither check nor update" ;;
    esac
}
