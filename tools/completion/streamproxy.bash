# shellcheck shell=bash
# Completion for streamproxy: subcommands, options, the values of options that list them, files.

_streamproxy_words() {
    case $1 in
    '') echo 'mix play hwsync --version' ;;
    mix)
        echo '-@ --loop --native --allow-truncated --write-frames -o --output --report --play
            --device --device-buffer --rate --format --headroom --normalize --realtime --properties --library --log --dump --json
            --quiet'
        ;;
    play)
        echo '-@ --loop --native --allow-truncated --write-frames -o --output --report --device
            --device-buffer --rate --format --headroom --normalize --realtime --properties --library --log --dump --json
            --quiet'
        ;;
    hwsync) echo 'pack inspect replay' ;;
    'hwsync pack')
        echo '-o --output --burst --burst-frames --first-pts --jitter --length --downmix --gap --free-run
            --extension --fault --seed --allow-truncated --quiet'
        ;;
    'hwsync inspect') echo '--rate --channels --format --tolerance --summary --json --csv' ;;
    'hwsync replay')
        echo '--rate --channels --format --offset --drift --event --script --latency
            --latency-offset --clock --alead-threshold --alead-upper --vlead-threshold
            --vlead-upper --duration --max-heard --gain --beside -o --output --svg --report --summary
            --json --csv --properties --library --log --realtime --quiet'
        ;;
    esac
    echo '-h --help'
}

# _streamproxy_values OPTION COMMAND : what may follow it. Fails where no value follows.
_streamproxy_values() {
    case $1 in
    --format)
        case $2 in
        hwsync*) echo '16 32' ;;
        *) echo '16 32 f32' ;;
        esac
        ;;
    --log) echo 'verbose debug info warn error silent' ;;
    --fault) echo 'garbage cut-header wrong-size absurd-size version-1' ;;
    --rate) echo '8000 16000 22050 32000 44100 48000 96000 192000' ;;
    --device) echo 'default' ;;
    -@ | --loop | --headroom | --write-frames | --device-buffer | --channels | --tolerance | --burst | \
        --burst-frames | --first-pts | --jitter | --length | --gap | --free-run | --extension | \
        --seed | --offset | --drift | --event | --latency | --latency-offset | --clock | \
        --alead-threshold | --alead-upper | --vlead-threshold | --vlead-upper | --duration | \
        --max-heard | --gain) ;;
    *) return 1 ;;
    esac
}

_streamproxy() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command='' word words
    # --format=3 comes as three words.
    if [ "$current" = = ]; then
        current=''
    elif [ "$previous" = = ]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $command/$word in
        /mix | /play | /hwsync) command=$word ;;
        hwsync/pack | hwsync/inspect | hwsync/replay) command+=" $word" ;;
        esac
    done

    COMPREPLY=()
    if words=$(_streamproxy_values "$previous" "$command"); then
        :
    elif [[ $current == -* || $command == '' || $command == hwsync ]]; then
        words=$(_streamproxy_words "$command")
        # Where subcommands stand, options come once they are asked for.
        if [[ $current != -* ]]; then words=$(tr -s ' ' '\n' <<<"$words" | grep -v '^-'); fi
    else
        # Inputs, and what follows -o and its like.
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _streamproxy streamproxy
