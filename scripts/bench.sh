# shellcheck shell=bash
# ./dev bench [check|update]: ratios to peers, each measured beside its peer in one run; for AVX2 and
# for the baseline instruction set.
# ./dev bench preempt [OPTION...]: silence that control calls of low priority cause on a loaded
# machine.

# Beside peers, so on both instruction sets; and the library by itself.
BENCH_DUELS=(kernels channels rings final_stage resampler)
BENCH_PIPELINE=(growth latency control)

bench_needs() {
    need_build
    need libbenchmark-dev libsdl2-dev libspeexdsp-dev libsoxr-dev libsamplerate0-dev \
        libzita-resampler-dev libswresample-dev libavutil-dev libjack-jackd2-dev libboost-dev \
        libfftw3-dev python3
}

# bench_run PRESET FILTER PROGRAM... : writes out/bench/PRESET/PROGRAM.json. A program whose figures
# break a bound ends in failure: all of them run, and BENCH_BROKEN names those.
bench_run() {
    local preset=$1 filter=$2 program
    shift 2
    mkdir -p "out/bench/$preset"
    for program in "$@"; do
        say "measuring $program ($preset)"
        rm -f "out/bench/$preset/$program.json"
        "$BUILD_DIR/bin/bench_$program" --benchmark_filter="$filter" \
            --benchmark_out_format=json --benchmark_out="out/bench/$preset/$program.json" \
            >/dev/null || BENCH_BROKEN+=" $program"
    done
}

bench_all() {
    bench_needs
    need sox ffmpeg
    CC='' CXX='' STDLIB='' build bench
    bench_run bench . "${BENCH_DUELS[@]}" "${BENCH_PIPELINE[@]}"
    CC='' CXX='' STDLIB='' build bench-baseline
    bench_run bench-baseline . "${BENCH_DUELS[@]}"
    say "the whole job beside sox and ffmpeg"
    python3 scripts/whole_job.py build/bench/bin/streamproxy out/bench/bench/whole_job.json
    python3 scripts/whole_job.py build/bench-baseline/bin/streamproxy \
        out/bench/bench-baseline/whole_job.json
    python3 scripts/bench.py "$1" out/bench
}

# A few figures with wide bounds, for a machine that does other things too: a loop that lost its
# vectors is several times slower, a lock that starves its callers costs hundreds of cycles.
bench_check() {
    bench_needs
    rm -rf out/bench/bench
    CC='' CXX='' STDLIB='' TARGET=benchmarks build bench
    local duels='kernel/.*/900|channels/.*/960|ring/(copy|in_place)/(441|960)|final_stage/8/900'
    bench_run bench "^($duels|resampler/|quality/)" "${BENCH_DUELS[@]}"
    STREAMPROXY_BENCH_SLACK=2.5 bench_run bench '^(growth/|control/(volume|pipeline dump)/)' \
        growth control
    python3 scripts/bench.py check out/bench
}

bench_preempt() {
    bench_needs
    CC='' CXX='' STDLIB='' TARGET=bench_preempt build bench
    "$BUILD_DIR/bin/bench_preempt" "$@"
}

verb_bench() {
    BENCH_BROKEN=
    case "${1:-}" in
    '') bench_all print ;;
    update) bench_all update ;;
    check) bench_check ;;
    preempt) bench_preempt "${@:2}" ;;
    *) die "bench: '$1' is neither check, update nor preempt" ;;
    esac
    [ -z "$BENCH_BROKEN" ] || die "bench: outside of their bounds, see above:$BENCH_BROKEN"
}
