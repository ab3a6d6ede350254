# shellcheck shell=bash
# Small helpers for every script of this folder. To be sourced.

# Says something on standard error, after the name of the script.
say() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
}

# Says why and ends the script.
die() {
    say "$*"
    exit 1
}

# wait_for SECONDS COMMAND...: repeats COMMAND until it succeeds; fails when the time is over.
# Returns the instant the condition holds, but for the small pause between two tries.
wait_for() {
    local deadline=$((SECONDS + $1))
    shift
    until "$@"; do
        [ "$SECONDS" -le "$deadline" ] || return 1
        sleep 0.02
    done
}
