# shellcheck shell=bash
# Sourced by scripts that only wait for one child, the last process that they started in the background.

# Calls the function $1 with the signal's name for each signal that a sandbox passes on.
handle_signals() {
    local signal
    for signal in TERM HUP USR1 USR2; do
        # shellcheck disable=SC2064  # both names are to be expanded now
        trap "$1 $signal" "$signal"
    done
}

signal_child() {
    interrupted=yes
    kill -"$1" $! 2>/dev/null || true
}

# Exits with the child's status. A signal that is passed on ends `wait` but not the child, so `wait` is repeated.
exit_with_child() {
    local interrupted status
    until
        interrupted='' status=0
        wait $! 2>/dev/null || status=$?
        [[ -z $interrupted ]]
    do :; done
    exit "$status"
}
