#!/usr/bin/env bash
# dev.sh TREE : what ./dev tells of each verb, and that it takes the caller's paths from anywhere.
set -euo pipefail
tree=$1
cd /
fail() {
    printf '%s\n' "$*" >&2
    exit 1
}
for script in "$tree"/scripts/*.sh; do
    verb=$(basename "$script" .sh)
    grep -q "^verb_$verb()" "$script" || continue
    for flag in -h --help; do
        "$tree/dev" "$verb" $flag | grep -q "^\./dev $verb" || fail "./dev $verb $flag tells nothing"
    done
done
# `bench preempt --help` is of the benchmark, and `help` of all verbs.
"$tree/dev" help | grep -q '^Environment:' || fail "./dev help is not whole"
! "$tree/dev" demo --help | grep -q 'Environment:\|coverage' || fail "./dev demo --help tells too much"

# shellcheck disable=SC2034  # read there
CALLER=/somewhere/else
# shellcheck source=scripts/demo.sh
. "$tree/scripts/demo.sh"
demo_inputs 'a song.ogg@gain=-6dB,start=2' /voice.wav - -@rate=8000 ../b.wav
expected='/somewhere/else/a song.ogg@gain=-6dB,start=2|/voice.wav|-|-@rate=8000|/somewhere/else/../b.wav'
found=$(IFS='|' && printf '%s' "${DEMO_INPUTS[*]}")
[ "$found" = "$expected" ] || fail "demo_inputs makes $found"
