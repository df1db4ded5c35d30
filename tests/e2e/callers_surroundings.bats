#!/usr/bin/env bats
# A start does not depend on the caller's environment, descriptors, signals and directory.
load helpers

# complete NAME: the account's container is complete.
complete() {
    same "live namespaces of $1" $'net\nipc\nmnt' "$(mounted "$1")"
    enter "$1" test -w "/home/$1" -a -w /tmp
    refused enter_as_root "$1" touch /etc/probe 2>/dev/null
    same "rules for $1" 2 "$(iptables-save | grep -cE "(PREROUTING|INPUT).* -i veth-$1 ")"
    same "rule for all" 1 "$(iptables-save | grep -c MASQUERADE)"
}
export -f complete

# A program that starts another one with PATH and the environment ENTRIES of its source.
compile_launcher() {
    cat >/tmp/launcher.c <<END
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>
int main(int argc, char** argv) {
    static char path[4096];
    snprintf(path, sizeof path, "PATH=%s", getenv("PATH"));
    char* environment[] = {path, $1, 0};
    execve(argv[1], argv + 1, environment);
    return 127;
}
END
    cc -o /tmp/launcher /tmp/launcher.c
}
export -f compile_launcher

@test "host tools get PATH, TERM, LANG and TZ of the caller's environment and nothing else" {
    in_host <<'EOF'
account alice 100.64.0.4/30
tools=(ip iptables sysctl)
for tool in "${tools[@]}"; do
    record "$tool" 'tr "\0" "\n" </proc/$$/environ | sort >"/tmp/environment.${0##*/}.$$"; exec "$real" "$@"'
done
capture env -i PATH="$PATH" TERM=vt52 LANG=C.UTF-8 TZ=Europe/Berlin HOME=/root LC_ALL=C LANGUAGE=de PATHS=x path=x \
    LD_LIBRARY_PATH=/tmp/none LD_DEBUG_OUTPUT=/tmp/none BASH_ENV=/tmp/none IFS=x XTABLES_LIBDIR= IPTABLES_X=x _=x \
    kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same "tools that were run" "${tools[*]}" "$(cut -d ' ' -f 1 /tmp/calls | sort -u | xargs)"
for seen in /tmp/environment.*; do
    same "$seen" "LANG=C.UTF-8
PATH=$PATH
TERM=vt52
TZ=Europe/Berlin" "$(cat "$seen")"
done
EOF
}

@test "duplicate entries and entries without a name or a value do not reach the host tools" {
    in_host <<'EOF'
account alice 100.64.0.4/30
record ip 'tr "\0" "\n" </proc/$$/environ | sort >/tmp/environment; exec "$real" "$@"'
compile_launcher '"LANG=C", "PATH=/nowhere", "LANG=C.UTF-8", "TERM", "SECRET", "=nameless", "", "TZ=", "TZ=x", "LANG"'
capture /tmp/launcher "$(command -v kivctl)" start alice
same status 0 "$status"
same environment "LANG=C
PATH=$PATH
TZ=" "$(cat /tmp/environment)"
complete alice
EOF
}

@test "the language variables do not change the output of a start" {
    in_host <<'EOF'
account alice 100.64.0.4/30
long=$(printf '%50000s' x)
for value in ../../../../tmp/x %s%n%n C.UTF-8/../x $'\n' $'\377' "$long" xx_YY.nothing; do
    capture env LANG="$value" LC_ALL="$value" LANGUAGE="$value" TZ="$value" TERM="$value" kivctl start carol
    same "stderr" "kivctl: KIV not configured for requested user" "$err"
done
capture env LANG="$value" LC_ALL="$value" TZ=":/etc/../dev/zero" kivctl start alice
same stdout "starting container: alice, network:100.64.0.4/30" "$out"
same stderr "" "$err"
complete alice
EOF
}

@test "descriptors that are closed at the start are opened on the null device" {
    for closed in 0 1 2 "0 1 2"; do
        export closed
        in_host <<'EOF'
account alice 100.64.0.4/30
record ip 'if [ "$1" = link ]; then readlink /proc/$$/fd/{0,1,2} >/tmp/descriptors; fi; exec "$real" "$@"'
redirections=
wanted=(/tmp/in /tmp/out /tmp/err)
for descriptor in $closed; do
    redirections+=" $descriptor<&-"
    wanted[descriptor]=/dev/null
done
touch /tmp/in
(eval "exec kivctl -d start alice </tmp/in >/tmp/out 2>/tmp/err $redirections")
same "descriptors of a host tool" "$(printf '%s\n' "${wanted[@]}")" "$(cat /tmp/descriptors)"
same "standard error" "" "$(cat /tmp/err)"
[ "${wanted[1]}" = /dev/null ] || same "end of standard output" OK. "$(tail -1 /tmp/out)"
complete alice
EOF
    done
}

@test "a usage error ends with its status although no stream is open" {
    in_host <<'EOF'
fails 64 kivctl restart <&- >&- 2>&-
fails 71 kivctl start alice <&- >&- 2>&-
fails 0 kivctl -h <&- >&- 2>&-
EOF
}

@test "a full standard output does not keep a container from being completed" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl -d start alice >/dev/full 2>/tmp/err
same stderr "" "$(cat /tmp/err)"
complete alice
EOF
}

@test "a program beside kivctl fails when its help or version cannot be written" {
    in_host <<'EOF'
for failure in "2 kiv-check" "71 kiv-list" "71 kiv-refresh" "125 kiv-run"; do
    read -r wanted program <<<"$failure"
    for option in --help --version; do
        capture sh -c "$program $option >/dev/full"
        same "status of $program $option" "$wanted" "$status"
        same "stderr of $program $option" \
            "$program: cannot write to standard output: No space left on device" "$err"
    done
done
EOF
}

@test "a start whose output has no reader any more is completed" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/real
ln -s real /srv/link
printf '%s\n' hide "    /srv/link/file" >"$configuration" # causes a message in the middle of the start
{
    until [ -e /tmp/gone ]; do sleep 0.01; done
    status=0
    kivctl -d start alice 2>&1 || status=$?
    echo "$status" >/tmp/status
} | {
    exec <&-
    touch /tmp/gone
}
same status 0 "$(cat /tmp/status)"
complete alice
EOF
}

@test "exec reaches the shell although its message has no reader any more" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
usermod --home /home/nowhere alice # causes a message after the container was joined
{
    until [ -e /tmp/gone ]; do sleep 0.01; done
    kivctl exec alice <<<"id -un" >/tmp/out
    echo "$?" >/tmp/status
} 2>&1 | {
    exec <&-
    touch /tmp/gone
}
same status 0 "$(cat /tmp/status)"
same "the shell's output" alice "$(cat /tmp/out)"
EOF
}

@test "a closed pipe ends host tools as usual" {
    in_host <<'EOF'
account alice 100.64.0.4/30
record ip 'grep ^SigIgn /proc/$$/status >/tmp/ignored; exec "$real" "$@"'
kivctl start alice
same "the pipe signal among those ignored" 0 $((16#$(cut -f 2 /tmp/ignored) & 1 << (13 - 1)))
EOF
}

@test "a caller who ignores SIGCHLD gets a complete container" {
    in_host <<'EOF'
account alice 100.64.0.4/30
capture perl -e '$SIG{CHLD} = "IGNORE"; exec @ARGV' kivctl start alice
same status 0 "$status"
same stderr "" "$err"
complete alice
EOF
}

@test "a working directory that was removed does not matter" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /tmp/gone
cd /tmp/gone
rmdir /tmp/gone
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
complete alice
EOF
}

@test "the file system that a start is called from can be unmounted afterwards" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /srv/site
mount -t tmpfs site /srv/site
cd /srv/site
kivctl start alice
cd /
umount /srv/site
complete alice
EOF
}
