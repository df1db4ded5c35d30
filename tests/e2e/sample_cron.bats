#!/usr/bin/env bats
# Debian's cron daemon on a host with the sample configuration. It is started after all jobs are
# written, because it reads them once before the first minute. With libfaketime its minutes take one
# second.
load helpers

setup() {
    export project sample="$project/dist/kiv.conf"
}

# host_without_jobs: removes the machine's own jobs from the simulated host.
host_without_jobs() {
    find /etc/cron.d /var/spool/cron/crontabs -mindepth 1 -delete
    : >/etc/crontab
}

# leave_jobs: alice tries to leave jobs from inside, as herself and as root without capabilities.
# The jobs write to her home, the only directory that she shares with the host.
leave_jobs() {
    kivctl exec alice <<'INSIDE'
job='* * * * * touch /home/alice'
system_job='* * * * * root touch /home/alice'
attempts="
    echo '$job/ran-by-crontab' | crontab -
    echo '$job/ran-from-spool' >/var/spool/cron/crontabs/USER
    chmod 600 /var/spool/cron/crontabs/USER
    echo '$system_job/ran-from-table' >>/etc/crontab
    echo '$system_job/ran-from-directory' >/etc/cron.d/USER"
bash -c "${attempts//USER/alice}"
left-behind -pc "id -u; ${attempts//USER/root}"
INSIDE
}

# run_cron: runs the host's daemon until the job of bob, who has no container, has run in two
# minutes.
run_cron() {
    local library
    library=$(echo /usr/lib/*/faketime/libfaketime.so.1)
    test -e "$library" # else the minutes have their usual length
    install -o bob /dev/null /home/bob/ran
    # shellcheck disable=SC2016 # for cron's shell
    echo '* * * * * echo $$ >>/home/bob/ran' | crontab -u bob -
    LD_PRELOAD=$library FAKETIME="+0 x60" cron -f </dev/null >/tmp/cron 2>&1 &
    eventually two_minutes_are_over
}

two_minutes_are_over() { (($(wc -l </home/bob/ran) >= 2)); }
export -f host_without_jobs leave_jobs run_cron two_minutes_are_over

@test "the host's cron never runs what an account or root without capabilities leaves in a container" {
    in_host <<'SCRIPT'
host_without_jobs
account alice 100.64.0.4/30
account bob
install -m 4755 /usr/bin/dash /usr/local/bin/left-behind
cp "$sample" "$configuration"
kivctl start alice
leave_jobs >/tmp/said 2>&1 || true
grep -x 0 /tmp/said >/dev/null # proves that the left program did become root
run_cron
same "what cron has run" "" "$(find /home/alice -name 'ran-*')"
same "whose jobs it knows" bob "$(ls /var/spool/cron/crontabs)"
SCRIPT
}

@test "if the configuration shows crontab without its spool, it has no effect on the host's cron" {
    in_host <<'SCRIPT'
host_without_jobs
account alice 100.64.0.4/30
account bob
install -m 4755 /usr/bin/dash /usr/local/bin/left-behind
grep -v /usr/bin/crontab "$sample" >"$configuration"
kivctl start alice
fails 1 kivctl exec alice <<<'echo "* * * * * true" | crontab -' >/tmp/said 2>&1
grep 'Read-only file system' /tmp/said >/dev/null
leave_jobs >/dev/null 2>&1 || true
run_cron
same "what cron has run" "" "$(find /home/alice -name 'ran-*')"
SCRIPT
}

# spool_in_container: starts alice's container with crontab visible and the host's spool bound. bob
# is not in the registry.
spool_in_container() {
    account alice 100.64.0.4/30
    useradd --create-home bob
    install -m 4755 /usr/bin/dash /usr/local/bin/left-behind
    grep -v /usr/bin/crontab "$sample" >"$configuration"
    printf '%s\n' bind "    /var/spool/cron/crontabs" >>"$configuration"
    kivctl start alice
}
export -f spool_in_container

@test "the host's cron runs an account's job if the configuration binds its spool" {
    in_host <<'SCRIPT'
host_without_jobs
spool_in_container
leave_jobs >/dev/null 2>&1 || true
run_cron
eventually test -e /home/alice/ran-by-crontab
eventually test -e /home/alice/ran-from-spool
same "whose jobs cron has run" "alice ran-by-crontab
root ran-from-spool" "$(find /home/alice -name 'ran-*' -printf '%u %f\n' | sort)"
SCRIPT
}

# The reason why the sample does not offer crontab even with the module: then an account's job runs
# inside, but root's does not.
@test "a bound spool of cron lets an account leave through root's jobs, even with the PAM module" {
    in_host <<'SCRIPT'
source "$project/tests/e2e/logins.bash"
host_without_jobs
spool_in_container
pam_service cron
kivctl exec alice <<'INSIDE'
look='readlink /proc/self/ns/mnt >/home/alice'
echo "* * * * * $look/ran-by-crontab" | crontab -
left-behind -pc "echo '* * * * * $look/ran-from-spool' >/var/spool/cron/crontabs/root
    chmod 600 /var/spool/cron/crontabs/root"
INSIDE
run_cron
eventually test -s /home/alice/ran-by-crontab
eventually test -s /home/alice/ran-from-spool
same "where her own job ran" "mnt:[$(stat -Lc %i /run/kiv/alice@mnt)]" "$(head -n 1 /home/alice/ran-by-crontab)"
same "where the job that she left for root ran" "$(readlink /proc/self/ns/mnt)" \
    "$(head -n 1 /home/alice/ran-from-spool)"
SCRIPT
}

@test "a line of the administrator runs an account's job in its container" {
    in_host <<'SCRIPT'
host_without_jobs
account alice 100.64.0.4/30
account bob
cp "$sample" "$configuration"
kivctl start alice
install -o alice -m 755 /dev/stdin /home/alice/job <<<'#!/bin/sh
echo "$(id -un) $(readlink /proc/self/ns/mnt)" >>ran'
echo "* * * * * root echo ./job | '$KIVCTL' exec alice" >/etc/cron.d/alice
run_cron
eventually test -s /home/alice/ran
same "who ran the job and where" "alice mnt:[$(stat -Lc %i /run/kiv/alice@mnt)]" "$(head -n 1 /home/alice/ran)"
SCRIPT
}
