#!/usr/bin/env bash
# completion.sh TOOL COMPLETION : what bash offers for command lines that are being typed.
set -euo pipefail
tool=$1
# shellcheck source=tools/completion/streamproxy.bash
. "$2"
failures=0

# offered WORD... : the words that would be offered for the last one, one a line.
offered() {
    COMP_WORDS=(streamproxy "$@")
    COMP_CWORD=$#
    COMPREPLY=()
    _streamproxy
    printf '%s\n' "${COMPREPLY[@]}"
}

# expect WANTED WORD... : exactly these, in any order.
expect() {
    local wanted found
    wanted=$(tr -s ' ' '\n' <<<"$1" | sort)
    shift
    found=$(offered "$@" | sort)
    if [ "$found" != "$wanted" ]; then
        printf 'streamproxy %s: offers\n%s\ninstead of\n%s\n' "$*" "$found" "$wanted" >&2
        failures=$((failures + 1))
    fi
}

# options WORD... : those that the help of this command lists.
options() {
    "$tool" "$@" --help |
        sed -nE '/^Options:/,/^$/s/^  (-[^ ]+).*/\1/p' | tr ',' '\n' | grep '^-'
}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
touch music.ogg 'my voice.wav' out.wav
mkdir mixes

expect 'mix play hwsync' ''
expect 'mix' m
expect 'pack inspect replay' hwsync ''
expect '--quiet' hwsync pack in.wav --q
expect '--device --device-buffer' play music.ogg --dev
expect '' hwsync inspect --play

for command in '' mix play hwsync 'hwsync pack' 'hwsync inspect' 'hwsync replay'; do
    read -ra words <<<"$command"
    mapfile -t listed < <(options "${words[@]}")
    [ ${#listed[@]} -gt 1 ] || { echo "streamproxy $command --help lists no options" >&2; exit 1; }
    expect "${listed[*]}" "${words[@]}" -
done

expect '16 32 f32' mix a.wav --format ''
expect '32' mix --format = 3
expect '16 32 f32' mix --format =
expect 'silent' hwsync replay --log s
expect 'garbage' hwsync pack --fault g
expect '' mix --loop ''

[ "$(offered play m | sort)" = $'mixes\nmusic.ogg\nmy voice.wav' ] ||
    { echo "streamproxy play m: offers $(offered play m)" >&2; failures=1; }
expect 'music.ogg' mix -o out.wav mu
expect 'out.wav' hwsync replay --svg ou
[ "$(complete -p streamproxy)" = 'complete -F _streamproxy streamproxy' ] || failures=1
exit $((failures > 0))
