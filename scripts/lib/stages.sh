# shellcheck shell=bash
# Sourced by scripts that run a list of stages. The output of each stage is shown and kept in build/stages/SCRIPT/NAME.log.

passed=() failed=() skipped=()
stages_start=$EPOCHREALTIME
stage_logs=build/stages/${0##*/}
unpassed=build/unpassed.$$ # what run_tests leaves for finish to print

print_since() { # START
    local -i microseconds=$((${EPOCHREALTIME/[.,]/} - ${1/[.,]/}))
    printf '%d.%d s' $((microseconds / 1000000)) $((microseconds / 100000 % 10))
}

# Records a failure in `failed` and returns success: a caller that tested the status would switch off `set -e` inside a
# COMMAND that is a function. A command that succeeds and ends with the line "skipped: REASON" counts as skipped.
stage() { # NAME COMMAND [ARGS...]
    local name=$1 log=$stage_logs/$1.log start=$EPOCHREALTIME status last
    shift
    printf '\n== %s: %s\n' "$name" "$*"
    mkdir -p "$stage_logs"
    set +e
    (set -e && "$@") 2>&1 | tee "$log"
    status=${PIPESTATUS[0]}
    set -e
    last=$(tail -n 1 "$log")
    if [[ $status != 0 ]]; then
        failed+=("$name")
        printf '== %s: FAILED with status %d after %s\n' "$name" "$status" "$(print_since "$start")"
    elif [[ $last == "skipped: "* ]]; then
        skipped+=("$name")
        printf '== %s: %s\n' "$name" "$last"
    else
        passed+=("$name")
        printf '== %s: passed in %s\n' "$name" "$(print_since "$start")"
    fi
}

# A stage without which the later ones make no sense: ends the script if it fails.
run_stage() { # NAME COMMAND [ARGS...]
    stage "$@"
    [[ ${#failed[@]} == 0 ]] || finish "scripts/${0##*/}"
}

# Runs ctest in FOLDER, with more tests at once than there are processors: they wait more than they compute. finish repeats
# the lines about tests that did not pass, since much output can follow them.
run_tests() { # FOLDER [CTEST ARGS...]
    local log=$1/ctest.log
    if ! ctest --test-dir "$1" --output-on-failure --no-tests=error --parallel "$((2 * $(nproc)))" --output-log "$log" "${@:2}"; then
        printf '\n== not passed in %s:\n' "$1" >>"$unpassed"
        grep -vE '^\[[A-Z_]*OUTPUT\]|^ *Start +[0-9]+:| Passed +[0-9.]+ sec$|^$' "$log" >>"$unpassed"
        return 1
    fi
}

# Prints the result of SCRIPT and the end of each failed stage's output, and exits.
finish() { # SCRIPT
    local name
    [[ ! -e $unpassed ]] || { cat "$unpassed" && rm "$unpassed"; }
    printf '\n%s: %s after %s%s\n' "$1" "${failed[*]:+FAILED: }${failed[*]:-passed}" "$(print_since "$stages_start")" \
        "${skipped[*]:+; skipped: }${skipped[*]}"
    for name in "${failed[@]}"; do
        printf '\n== %s: the end of %s\n' "$name" "$stage_logs/$name.log"
        tail -n 40 "$stage_logs/$name.log"
    done
    exit $((${#failed[@]} > 0))
}
