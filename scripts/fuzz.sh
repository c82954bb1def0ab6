# shellcheck shell=bash
# ./dev fuzz [SECONDS [NAME...]] : replays the seeds, then looks for new inputs for SECONDS each.

FUZZERS=(tunnel api chain parameters reader)

# A buffer property of -1 asks for 16 GB: it has to be refused, not reported. The log has the rest.
fuzz_one() {
    local name=$1 seconds=$2 log=$BUILD_DIR/$1.log
    local options=(-malloc_limit_mb=0 -rss_limit_mb=4096 -timeout=60 -max_len=4096
        -artifact_prefix="$BUILD_DIR/$name-")
    mkdir -p "$BUILD_DIR/corpus/$name"
    # The seeds and what earlier runs found; then on from there.
    "$BUILD_DIR/bin/fuzz_$name" "${options[@]}" -runs=0 \
        "fuzz/corpus/$name" "$BUILD_DIR/corpus/$name" >"$log" 2>&1 &&
        "$BUILD_DIR/bin/fuzz_$name" "${options[@]}" -max_total_time="$seconds" \
            -print_final_stats=1 "$BUILD_DIR/corpus/$name" "fuzz/corpus/$name" >>"$log" 2>&1
}

verb_fuzz() {
    local seconds=${1:-30} name failed=() executed covered
    [[ $seconds =~ ^[1-9][0-9]*$ ]] || die "fuzz: '$seconds' is no number of seconds"
    [ $# -eq 0 ] || shift
    if [ $# -gt 0 ]; then FUZZERS=("$@"); fi
    need_build
    need clang libclang-rt-14-dev
    CC='' CXX='' STDLIB='' build fuzz
    for name in "${FUZZERS[@]}"; do
        [ -x "$BUILD_DIR/bin/fuzz_$name" ] || die "fuzz: no fuzzer by the name '$name'"
    done
    export ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=2048
    local batch processes=() i
    trap 'kill "${processes[@]}" 2>/dev/null' EXIT
    for name in "${FUZZERS[@]}"; do
        forget "fuzz-$name"
        rm -f "$BUILD_DIR/$name"-*
    done
    while [ ${#FUZZERS[@]} -gt 0 ]; do
        batch=("${FUZZERS[@]:0:JOBS}")
        processes=()
        FUZZERS=("${FUZZERS[@]:JOBS}")
        say "fuzzing ${batch[*]}, $seconds s"
        for name in "${batch[@]}"; do
            fuzz_one "$name" "$seconds" &
            processes+=($!)
        done
        for i in "${!batch[@]}"; do
            if ! wait "${processes[i]}"; then
                failed+=("${batch[i]}")
                continue
            fi
            executed=$(sed -n 's/^stat::number_of_executed_units: *//p' \
                "$BUILD_DIR/${batch[i]}.log" | tail -n 1)
            covered=$(grep -o 'cov: [0-9]*' "$BUILD_DIR/${batch[i]}.log" | tail -n 1)
            record "fuzz-${batch[i]}" \
                "$seconds s: $executed executions, ${covered#cov: } edges reached"
        done
    done
    trap - EXIT
    [ ${#failed[@]} -eq 0 ] || die "a fault was found by ${failed[*]}: $(
        for name in "${failed[@]}"; do
            printf '\n  the report is %s, its input:' "$BUILD_DIR/$name.log"
            printf ' %s' "$BUILD_DIR/$name"-*
        done
    )
  Once mended, the input belongs into fuzz/corpus/, so that it is replayed from then on."
}
