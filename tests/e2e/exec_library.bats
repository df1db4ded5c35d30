#!/usr/bin/env bats
# exec with another library in place of the container library: the calls' arguments, and the meaning
# of their results.
load helpers
recording=$(realpath "$(dirname "$KIVCTL")/../tests/recording")
export recording

# record_library ANSWER…: sets the library's results from now on, and clears the record of calls.
record_library() {
    printf '%s\n' "$@" >/tmp/library-answers
    rm -f /tmp/library-calls
}

# run_exec USER: captures an exec with the recording library; the shell prints that it runs.
run_exec() {
    capture env LD_LIBRARY_PATH="$recording" kivctl exec "$1" <<<'echo the shell of $(id -un)'
}

# shell_runs USER: the expected result when every step has succeeded.
shell_runs() {
    run_exec "$1"
    same "exit status" 0 "$status"
    same stdout "the shell of $1" "$out"
    same stderr "" "$err"
}

# step_fails LINE: the expected result when a step has failed; LINE is the error line.
step_fails() {
    run_exec alice
    same "exit status" 71 "$status"
    same stdout "Switching into container 'alice'..." "$out"
    printf '%s\n' "$1" | cmp - /tmp/captured.err
}

# calls: prints the recorded calls; the handle is replaced by a word if it is the same in all.
calls() {
    local handle
    handle=$(awk '$1 == "kiv_load_config" { print $2 }' /tmp/library-calls)
    sed "s/ $handle\b/ HANDLE/" /tmp/library-calls
}
export -f record_library run_exec shell_runs step_fails calls

@test "each of the six calls is made once, in their order, with the same handle" {
    in_host <<'EOF'
account alice
record_library
shell_runs alice
same calls "kiv_set_log_cb a-function
kiv_load_config HANDLE
kiv_cg_enter HANDLE $(id -u alice)
kiv_apply_namespaces HANDLE alice 0
kiv_seccomp HANDLE
kiv_capabilities HANDLE" "$(calls)"
refused grep -w null /tmp/library-calls
EOF
}

@test "the library gets the given name, even when another account has the same user ID" {
    in_host <<'EOF'
account alice
useradd --non-unique --uid "$(id -u alice)" --no-create-home --shell /bin/false bob
record_library
capture env LD_LIBRARY_PATH="$recording" kivctl exec bob <<<'echo "$0 $HOME"'
same status 0 "$status"
same "shell and home of the first entry" "/bin/bash /home/alice" "$out"
same calls "kiv_cg_enter HANDLE $(id -u alice)
kiv_apply_namespaces HANDLE bob 0" "$(calls | grep -E 'cg_enter|apply')"
EOF
}

@test "the cgroup step fails on every result except 0, and nothing is called after it" {
    in_host <<'EOF'
account alice
for result in 1 -1 5 -2 2147483647; do
    record_library "kiv_cg_enter returns $result" "kiv_cg_enter logs no cgroup today"
    step_fails "kivctl: no cgroup today"
    same "calls for $result" $'kiv_set_log_cb\nkiv_load_config\nkiv_cg_enter' \
        "$(cut -d ' ' -f 1 /tmp/library-calls)"
done
EOF
}

@test "the other steps fail on -1, and nothing is called after them" {
    in_host <<'EOF'
account alice
steps=(kiv_set_log_cb kiv_load_config kiv_cg_enter kiv_apply_namespaces kiv_seccomp kiv_capabilities)
for ((i = 3; i < ${#steps[@]}; i++)); do
    record_library "${steps[i]} returns -1" "${steps[i]} logs ${steps[i]} has failed"
    step_fails "kivctl: ${steps[i]} has failed"
    same "calls up to ${steps[i]}" "${steps[*]:0:i+1}" "$(cut -d ' ' -f 1 /tmp/library-calls | xargs)"
done
EOF
}

@test "the other steps succeed with every result except -1" {
    in_host <<'EOF'
account alice
for result in 1 -2 5 -2147483648; do
    record_library kiv_{apply_namespaces,seccomp,capabilities}" returns $result"
    shell_runs alice
    same "number of calls" 6 "$(wc -l </tmp/library-calls)"
done
EOF
}

@test "what kiv_load_config returns does not matter" {
    in_host <<'EOF'
account alice
for result in -1 1; do
    record_library "kiv_load_config returns $result" "kiv_load_config logs not understood"
    shell_runs alice
done
EOF
}

@test "of several messages the last one is the error" {
    in_host <<'EOF'
account alice
record_library "kiv_apply_namespaces logs the first, and by far the longest of the three" \
    "kiv_apply_namespaces logs the second" "kiv_apply_namespaces logs third" "kiv_apply_namespaces returns -1"
step_fails "kivctl: third"
EOF
}

@test "when a step fails without a message, the error line is only the program's name" {
    in_host <<'EOF'
account alice
for step in kiv_cg_enter kiv_apply_namespaces kiv_seccomp kiv_capabilities; do
    record_library "$step returns -1"
    step_fails "kivctl: "
done
EOF
}

@test "an empty message counts as a message" {
    in_host <<'EOF'
account alice
record_library "kiv_seccomp logs earlier" "kiv_seccomp logs " "kiv_seccomp returns -1"
step_fails "kivctl: "
EOF
}

@test "a message of an earlier call is shown when a later one fails without its own" {
    in_host <<'EOF'
account alice
record_library "kiv_load_config logs line 3: not understood" "kiv_capabilities returns -1"
step_fails "kivctl: line 3: not understood"
record_library "kiv_load_config logs line 3: not understood" "kiv_cg_enter logs only a warning" \
    "kiv_seccomp returns -1"
step_fails "kivctl: only a warning"
EOF
}

@test "messages are not printed when every step succeeds" {
    in_host <<'EOF'
account alice
record_library kiv_{load_config,cg_enter,apply_namespaces,seccomp,capabilities}" logs a word"
shell_runs alice
EOF
}

@test "a message of any length is printed unchanged except for control characters" {
    in_host <<'EOF'
account alice
for text in '%s%n' '100% of %d, %%, %5$s' "$(printf '%09000d' 7)" "$(printf '%0200000d' 7)%s" $'tab\tand \\n'; do
    record_library "kiv_cg_enter logs $text" "kiv_cg_enter returns 1"
    step_fails "kivctl: ${text/$'\t'/'\x09'}"
done
EOF
}

@test "the library exports only its six calls, and the program needs it by its SONAME" {
    library=$(dirname "$KIVCTL")/../lib/libkiv.so.1
    shown=$(nm --dynamic --defined-only --format=just-symbols "$library" | sort | xargs)
    [ "$shown" = "kiv_apply_namespaces kiv_capabilities kiv_cg_enter kiv_load_config kiv_seccomp kiv_set_log_cb" ]
    readelf --dynamic "$library" | grep 'SONAME.*\[libkiv\.so\.1\]'
    readelf --dynamic "$KIVCTL" | grep 'NEEDED.*\[libkiv\.so\.1\]'
    run ! grep -E 'NEEDED.*\[lib(cap|seccomp)\.' <(readelf --dynamic "$KIVCTL")
}
