# shellcheck shell=bash
# Sourced by scripts that are a row of stages. Prints each stage's command before it and its time after it.

failed=()
stages_start=$EPOCHREALTIME

print_since() { # START
    local -i microseconds=$((${EPOCHREALTIME/[.,]/} - ${1/[.,]/}))
    printf '%d.%d s' $((microseconds / 1000000)) $((microseconds / 100000 % 10))
}

# Never returns failure, since that would switch off `set -e` in a COMMAND that is a function: remembers it in `failed`.
stage() { # NAME COMMAND [ARGS...]
    local name=$1 start=$EPOCHREALTIME status
    shift
    printf '\n== %s: %s\n' "$name" "$*"
    set +e
    (set -e && "$@")
    status=$?
    set -e
    if [[ $status == 0 ]]; then
        printf '== %s: passed in %s\n' "$name" "$(print_since "$start")"
    else
        failed+=("$name")
        printf '== %s: FAILED with status %d after %s\n' "$name" "$status" "$(print_since "$start")"
    fi
}

# The last line of the script $1, and its exit status.
finish() {
    printf '\n%s: %s after %s\n' "$1" "${failed[*]:+FAILED: }${failed[*]:-passed}" "$(print_since "$stages_start")"
    exit $((${#failed[@]} > 0))
}
