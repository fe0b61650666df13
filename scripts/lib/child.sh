# shellcheck shell=bash
# Sourced by those who do nothing but wait for one child, the last they started in the background.

# Has the function $1 called with the signal's name for each signal that a sandbox passes in.
handle_signals() {
    local signal
    for signal in TERM HUP USR1 USR2; do
        # shellcheck disable=SC2064  # both names are wanted as they are now
        trap "$1 $signal" "$signal"
    done
}

signal_child() {
    interrupted=yes
    kill -"$1" $! 2>/dev/null || true
}

# Leaves with the child's status. A signal that was passed on has interrupted the wait, not ended the child.
exit_with_child() {
    local interrupted status
    until
        interrupted='' status=0
        wait $! 2>/dev/null || status=$?
        [[ -z $interrupted ]]
    do :; done
    exit "$status"
}
