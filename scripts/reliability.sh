# shellcheck shell=bash
# ./dev reliability : puts the figures that the other verbs measured on this machine into the table of
# docs/reliability.md.

verb_reliability() {
    need python3
    python3 scripts/reliability.py docs/reliability.md out/reliability \
        "$(date +%F), $(. /etc/os-release && printf '%s' "$PRETTY_NAME"), $(nproc) cores"
}
