# shellcheck shell=bash
# Sourced by scripts that are a row of stages. Prints each stage's command before it and its time after it.

failed=()
stages_start=$EPOCHREALTIME
unpassed=build/unpassed.$$ # what run_tests wants finish to print

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

# ctest on the tests in FOLDER. What it says of those that did not pass, finish says again: much may be printed in between.
run_tests() { # FOLDER [CTEST ARGS...]
    local log=$1/ctest.log
    if ! ctest --test-dir "$1" --output-on-failure --no-tests=error --parallel "$(nproc)" --output-log "$log" "${@:2}"; then
        printf '\n== not passed in %s:\n' "$1" >>"$unpassed"
        grep -vE '^\[[A-Z_]*OUTPUT\]|^ *Start +[0-9]+:| Passed +[0-9.]+ sec$|^$' "$log" >>"$unpassed"
        return 1
    fi
}

# The last line of the script $1, and its exit status.
finish() {
    [[ ! -e $unpassed ]] || { cat "$unpassed" && rm "$unpassed"; }
    printf '\n%s: %s after %s\n' "$1" "${failed[*]:+FAILED: }${failed[*]:-passed}" "$(print_since "$stages_start")"
    exit $((${#failed[@]} > 0))
}
