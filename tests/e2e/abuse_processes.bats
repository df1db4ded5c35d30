#!/usr/bin/env bats
# Processes that stop must find, and similar ones that it must not signal.
load helpers
load with_abuse

@test "an account whose name another's begins with is started and stopped without the other" {
    with_abuse <<'EOF'
account al 100.64.0.4/30
account alice 100.64.0.8/30
account alice2 100.64.0.12/30
kivctl start alice
kivctl start alice2
resident alice net,ipc,mnt sleep 100; alices=$pid
resident alice2 net,ipc,mnt sleep 100; seconds=$pid
rules() { iptables-save | grep -E -e '-i veth-alice2? '; }
before=$(rules)
namespaces=$(stat -Lc %i /run/kiv/*)
capture kivctl status al
same "report of one that does not run" $'Account: al\nActive: no' "$out"
recovers al
same "namespaces of the others" "$namespaces" "$(stat -Lc %i /run/kiv/*)"
same "rules of the others" "$before" "$(rules)"
runs "$alices"
runs "$seconds"
capture kivctl stop alice
same stderr "alice: terminating processes: $alices" "$err"
runs "$seconds"
same "live namespaces of the third" $'net\nipc\nmnt' "$(mounted alice2)"
EOF
}

@test "a process in other namespaces is left alone though its parent is the container's" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start alice
kivctl start bob 2>/dev/null
# enters the container, and keeps one child in the second account's container and one on the host
nsenter --net=/run/kiv/alice@net --ipc=/run/kiv/alice@ipc bash -c '
    nsenter --target "$$" --net=/proc/1/ns/net --ipc=/proc/1/ns/ipc setpriv --reuid bob --clear-groups sleep 101 &
    nsenter --net=/run/kiv/bob@net --ipc=/run/kiv/bob@ipc --mount=/run/kiv/bob@mnt setpriv --reuid bob --clear-groups sleep 102 &
    wait' & parent=$!
eventually pgrep -x sleep --parent "$parent" >/dev/null
eventually eval '[ "$(pgrep -x sleep --parent "$parent" | wc -l)" = 2 ]'
children=$(pgrep -x sleep --parent "$parent" | xargs)
capture kivctl stop alice
has_run 0
same stderr "alice: terminating processes: $parent" "$err"
refused runs "$parent"
for child in $children; do runs "$child"; done
same "live namespaces" $'net\nipc\nmnt' "$(mounted bob)"
recovers alice
for child in $children; do runs "$child"; done
EOF
}

@test "a process that got the number of one that has ended since the search is not signalled" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
resident alice net,ipc,mnt sleep 100
# found and printed; before the signal the number has passed to another process
strace -qq -o /tmp/trace -e trace=pidfd_open,pidfd_send_signal,kill -e inject=pidfd_open:delay_enter=1000000 \
    kivctl stop alice 2>/tmp/err & stop=$!
until grep -qs "terminating processes: $pid" /tmp/err; do sleep 0.01; done
kill -KILL "$pid"
until_ended "$pid"
cat >/tmp/take.c <<'END'
#define _GNU_SOURCE
#include <linux/sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>
int main(int argc, char** argv) {
    pid_t number = atoi(argv[argc - 1]);
    struct clone_args arguments = {.exit_signal = SIGCHLD, .set_tid = (uintptr_t)&number, .set_tid_size = 1};
    long child = syscall(SYS_clone3, &arguments, sizeof arguments);
    if (child == 0) {
        pause();
        _exit(0);
    }
    return child == number ? 0 : 1;
}
END
cc -o /tmp/take /tmp/take.c
eventually /tmp/take "$pid"
refused grep -q pidfd_send_signal /tmp/trace
wait "$stop"
same stderr "alice: terminating processes: $pid
still processes left, aborting." "$(cat /tmp/err)"
runs "$pid"
refused grep -qE 'pidfd_send_signal|kill\(' /tmp/trace
kill -KILL "$pid"
recovers alice
EOF
}

@test "processes that fork faster than stop can search make only the stop fail" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
cat >/tmp/hop.c <<'END'
#include <signal.h>
#include <unistd.h>
/* never the same number for longer than a fork takes */
int main(void) {
    signal(SIGCHLD, SIG_IGN);
    for (;;) {
        if (fork() > 0) _exit(0);
    }
}
END
cc -O2 -o /usr/local/bin/hop /tmp/hop.c
mkdir /sys/fs/cgroup/storm
storm() { # COUNT: so many, on another processor than stop
    local i
    for ((i = 0; i < $1; i++)); do
        (echo "$BASHPID" >/sys/fs/cgroup/storm/cgroup.procs
            exec nsenter --net=/run/kiv/alice@net --ipc=/run/kiv/alice@ipc --mount=/run/kiv/alice@mnt \
                taskset --cpu-list "$all_processors" setpriv --reuid alice --clear-groups /usr/local/bin/hop) &
    done
    eventually grep -q '^populated 1' /sys/fs/cgroup/storm/cgroup.events
    sleep 0.2
}
for ((round = 1; round <= $(rounds 10 2); round++)); do
    kivctl start alice
    storm 3
    capture timeout 30 kivctl stop alice
    has_run 0
    echo "round $round: $(wc -w <<<"$err") words: ${err:0:200}"
    grep -vxE 'alice: terminating processes: [0-9]+(, [0-9]+)*|still processes left, aborting\.|' <<<"$err" && false
    capture timeout 30 kivctl status alice
    has_run 0
    echo 1 >/sys/fs/cgroup/storm/cgroup.kill
    eventually grep -q '^populated 0' /sys/fs/cgroup/storm/cgroup.events
    recovers alice
    pair_is_gone alice
done
EOF
}
