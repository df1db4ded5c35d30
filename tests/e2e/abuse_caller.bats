#!/usr/bin/env bats
# What kivctl inherits from a program that runs it: environment, descriptors, limits, groups,
# arguments.
load helpers
load with_abuse

@test "forty hostile variables change nothing, and reach neither the host's tools nor the shell" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
cat >/tmp/preload.c <<'END'
#define _GNU_SOURCE
#include <errno.h>
#include <stdio.h>
__attribute__((constructor)) static void loaded(void) {
    FILE* list = fopen("/tmp/loaded", "a");
    if (list) {
        fprintf(list, "%s\n", program_invocation_short_name);
        fclose(list);
    }
}
END
cc -shared -fPIC -o /tmp/preload.so /tmp/preload.c
mkdir -p /tmp/locale/xx_YY/LC_MESSAGES
long=$(printf "%100000s" x)
variables=(LD_PRELOAD=/tmp/preload.so LD_LIBRARY_PATH=/tmp LD_BIND_NOW=1 LD_DEBUG= LD_PROFILE=x LD_ORIGIN_PATH=/tmp
    MALLOC_CHECK_=3 MALLOC_PERTURB_=85 MALLOC_TRACE=/tmp/trace GCONV_PATH=/tmp LOCPATH=/tmp/locale
    GLIBC_TUNABLES=glibc.malloc.check=3:glibc.malloc.tcache_count=0 NLSPATH=/tmp/%N%s%n TEXTDOMAINDIR=/tmp/locale
    TEXTDOMAIN=other LANGUAGE=xx_YY:../../tmp LC_ALL=xx_YY LC_MESSAGES=../../../tmp LANG=../../../tmp/locale/xx_YY
    TZ=:../../../../tmp/preload.so TZDIR=/tmp "TERM=$long" TERMINFO=/tmp TERMCAP=/tmp/x HOSTALIASES=/tmp/x
    RES_OPTIONS=x LOCALDOMAIN=x RESOLV_HOST_CONF=/tmp/x TMPDIR=/tmp POSIXLY_CORRECT=1 IFS=/ BASH_ENV=/tmp/x
    ENV=/tmp/x SHELLOPTS=xtrace 'PS4=$(touch /tmp/ps4)' 'BASH_FUNC_ip%%=() { touch /tmp/function; }'
    XTABLES_LIBDIR=/tmp IPTABLES_MODULES=/tmp "HOME=$long" SHELL=/tmp/x)
same "variables" 40 "${#variables[@]}"
hostile() { env "${variables[@]}" "$@"; }
for tool in ip iptables sysctl; do
    record "$tool" 'tr "\0" "\n" </proc/$$/environ | cut -d = -f 1 >>/tmp/names; exec "$real" "$@"'
done
capture hostile kivctl start alice
has_run 0
same "stderr of start" "" "$err"
same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
same "variables of the tools" $'LANG\nPATH\nTERM\nTZ' "$(sort -u /tmp/names)"
same "variables of the shell" $'HOME\nLANG\nPATH\nTERM\nTZ' \
    "$(hostile kivctl exec alice <<<'tr "\0" "\n" </proc/$$/environ | cut -d = -f 1 | sort')"
capture hostile kivctl status alice
same "output of status" $'Account: alice\nActive: yes' "$(head -2 <<<"$out")"
capture hostile kivctl stop alice
has_run 0
same "stderr of stop" "" "$err"
# the loader preloads it into programs that the caller runs, and into none that kivctl runs
same "programs that were preloaded" kivctl "$(sort -u /tmp/loaded)"
for made in /tmp/ps4 /tmp/function /tmp/trace; do refused test -e "$made"; done
recovers alice
EOF
}

@test "catalogues are read from the host's directory and not from one that the caller names" {
    with_abuse <<'EOF'
catalogue() { # DIRECTORY TEXT
    mkdir -p "$1/LC_MESSAGES"
    printf 'msgid ""\nmsgstr "Content-Type: text/plain; charset=UTF-8\\n"\nmsgid "%s"\nmsgstr "%s"\n' \
        "unknown command '%s'" "$2" | msgfmt -o "$1/LC_MESSAGES/kivctl.mo" -
}
catalogue /tmp/catalogues/de "foreign %n%s%s"
catalogue /tmp "foreign %n%s%s"
german 2>/dev/null
says() { # TEXT VARIABLE…
    capture env "${@:2}" kivctl restart
    has_run 64
    same "stderr with ${*:2}" "[ERROR] kivctl: $1" "$err"
}
elsewhere=(TEXTDOMAINDIR=/tmp/catalogues TEXTDOMAIN=kivctl NLSPATH=/tmp/catalogues/de/LC_MESSAGES/%N.mo)
says "unknown command 'restart'" "${elsewhere[@]}"
for language in de ../../../tmp/catalogues/de ../../../tmp /tmp; do
    says "unknown command 'restart'" "${elsewhere[@]}" "LANGUAGE=$language"
done
# the language exists and its own catalogue is read; formats in its texts are not expanded
catalogue /usr/share/locale/de "%n: %s %s"
says "%n: restart restart" "${elsewhere[@]}"
EOF
}

@test "without PATH, or with one that leads nowhere, start names the missing tool and the next start repairs it" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
kivctl=$(command -v kivctl)
long=$(printf '%50000s' x | tr ' ' /):$(printf '%50000s' x | tr ' ' :)
for path in unset "" : /nowhere /etc/passwd "$long" $'\n' %s%n; do
    entries=("PATH=$path")
    [ "$path" != unset ] || entries=()
    limited=(env -i "${entries[@]}" /usr/bin/timeout 20 "$kivctl")
    capture "${limited[@]}" start alice
    echo "PATH=${path:0:20}: $status: ${err:0:200}"
    has_run 71
    # without PATH the C library searches two default directories, which may have the first tool
    [[ $err =~ ^"ERROR during execvp: "(No such file or|Not a)" directory"$'\n'"exit code 255: ip -4 route show "\
default\ 0.0.0.0/0$'\n'"$kivctl: Error while querying default route"$ || ($path = unset && $err = "$kivctl: Error \
while checking for default MASQUERADE rule (255): ERROR during execvp: No such file or directory") ]]
    same "files left by start" "" "$(files_of alice)"
    capture "${limited[@]}" status alice
    has_run 0
    capture "${limited[@]}" stop alice
    has_run 0
    same "stderr of stop" "" "$err"
    recovers alice
    unprepared
done
EOF
}

@test "tools of the current directory are not run" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
mkdir /tmp/here
for tool in ip iptables sysctl; do
    printf '#!/bin/bash\ntouch /tmp/here/was-run\n' >"/tmp/here/$tool"
    chmod +x "/tmp/here/$tool"
done
cd /tmp/here
capture kivctl start alice
has_run 0
recovers alice
kivctl start alice
# without PATH the C library's default path is used, which does not include the current directory
kivctl=$(command -v kivctl)
for command in stop start stop; do
    capture env -u PATH "$kivctl" "$command" alice
    echo "$command without PATH: $status: $err"
done
[[ $err == *"ERROR during execvp: No such file or directory"* ]]
refused test -e was-run
iptables -F
iptables -t nat -F PREROUTING
pair_is_gone alice
recovers alice
EOF
}

@test "every command works with any of the standard descriptors closed" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
# else a tool would write to a file that kivctl had opened under one of these numbers
record iptables 'readlink /proc/$$/fd/{0,1,2} >/tmp/descriptors; exec "$real" "$@"'
for closed in 0 1 2 "0 1" "1 2" "0 2" "0 1 2"; do
    redirections=
    wanted=(/dev/null /tmp/out /tmp/err)
    for descriptor in $closed; do
        redirections+=" $descriptor<&-"
        wanted[descriptor]=/dev/null
    done
    for command in start status exec stop; do
        status=0
        (eval "exec timeout 20 kivctl $command alice </dev/null >/tmp/out 2>/tmp/err $redirections") || status=$?
        same "status of $command without $closed" 0 "$status"
        [[ $closed == *2* ]] || same "stderr of $command without $closed" "" "$(cat /tmp/err)"
    done
    same "descriptors of a tool of stop" "$(printf '%s\n' "${wanted[@]}")" "$(cat /tmp/descriptors)"
    same "files left" "" "$(files_of alice)"
    pair_is_gone alice
done
recovers alice
EOF
}

@test "the shell does not inherit descriptors 3 to 60 of the caller" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
for ((i = 3; i <= 60; i++)); do
    eval "exec $i</etc/passwd"
done
exec 20</ 21</home 22</proc/self/ns/mnt 23>/tmp/written 24</run
capture timeout 20 kivctl start alice
has_run 0
same stderr "" "$err"
same "descriptors of the shell" "0 1 2" "$(kivctl exec alice <<<'ls /proc/$$/fd' | xargs)"
capture timeout 20 kivctl status alice
has_run 0
capture timeout 20 kivctl stop alice
has_run 0
same "stderr of stop" "" "$err"
same "written" "" "$(cat /tmp/written)"
EOF
}

@test "with any limit of descriptors each command ends by itself, and a later start repairs what it leaves" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
touch /srv/secret
printf '%s\n' hide "    /srv/secret" empty "    /proc/irq" bind "    /etc/hostname" >"$configuration"
kivctl start alice
kivctl stop alice
limited() { # LIMIT COMMAND: only for kivctl; the program that runs it needs some itself
    capture bash -c '
        for descriptor in /proc/$$/fd/*; do
            ((${descriptor##*/} < 3)) || eval "exec ${descriptor##*/}<&-"
        done
        ulimit -n "$1"
        exec kivctl "$2" alice' limited "$@" </dev/null
    echo "limit $1, $2: $status: $err"
    # the loader itself exits with 127 when it cannot open a library
    [[ $status =~ ^(0|71|255)$ || ($status = 127 && $err == *"loading shared libraries"*) ]]
}
complete=
for ((limit = 3; limit <= $(rounds 40 12); limit++)); do
    pair_is_gone alice
    limited "$limit" start
    if [ "$status" = 0 ] && [ -z "$err" ]; then
        same "live namespaces" $'net\nipc\nmnt' "$(mounted alice)"
        same "type of the root" overlayfs "$(enter_as_root alice stat -f -c %T /)"
        refused enter_as_root alice test -e /srv/secret
        complete=${complete:-$limit}
    elif [ "$(mounted alice)" = $'net\nipc\nmnt' ]; then
        # the container may lack parts, but must not have the host's root
        refused enter_as_root alice test -e /run/kiv/alice@mnt 2>/dev/null
    fi
    capture kivctl start alice
    for command in status exec stop; do
        limited "$limit" "$command"
    done
    recovers alice
done
echo "complete from $complete on"
((complete <= 10))
EOF
}

@test "the shell has none of the caller's groups 0, 4 and 27" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
as_caller() { setpriv --regid 0 --groups 0,4,27 kivctl "$@"; }
capture as_caller start alice
has_run 0
same stderr "" "$err"
same "groups of the shell" "$(id -g alice)" "$(as_caller exec alice <<<'id -G')"
capture as_caller stop alice
has_run 0
EOF
}

@test "arguments of the greatest length that the kernel passes are names that are not configured" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
long=$(head -c 131071 /dev/zero | tr '\0' x) # 128 KiB with the NUL byte, execve(2)
for command in start stop status; do
    capture kivctl "$command" "$long"
    has_run 71
    same "stderr of $command" "kivctl: KIV not configured for requested user" "$err"
done
capture kivctl exec "$long"
has_run 71
same "stderr of exec" "kivctl: $long: unknown user" "$err"
capture kivctl "$long" alice
has_run 64
capture kivctl "-${long:1}"
has_run 64
capture kivctl -c "$long" start alice
has_run 64
same "stderr of a long configuration" "kivctl: $long: cannot open file $long" "$err"
many=()
for ((i = 0; i < 15; i++)); do many+=("${long:0:100000}"); done
capture kivctl start "${many[@]}"
has_run 64
refused test -e /run/kiv
EOF
}

@test "the longest program name begins an error line, and the kernel refuses one of a megabyte" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
long=$(head -c 131071 /dev/zero | tr '\0' x)
named() { (exec -a "$@"); }
capture named "$long" kivctl start bob
has_run 71
same stderr "$long: KIV not configured for requested user" "$err"
capture named "$long" kivctl start alice
has_run 0
same "stderr of alice's" "" "$err"
# longer than the kernel allows: execve(2) itself refuses
cat >/tmp/megabyte.c <<'END'
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>
int main(int argc, char** argv) {
    char* name = malloc(1 << 20);
    memset(name, 'x', 1 << 20);
    name[(1 << 20) - 1] = 0;
    char* arguments[] = {name, "start", "alice", 0};
    execv(argv[argc - 1], arguments);
    return errno == E2BIG ? 7 : 1;
}
END
cc -o /tmp/megabyte /tmp/megabyte.c
fails 7 /tmp/megabyte "$(command -v kivctl)"
recovers alice
EOF
}

@test "a shell that is a script for /proc/self/exe runs kivctl without rights, which prints its usage" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
printf '#!/proc/self/exe\n' >/home/alice/shell
printf '#!/proc/self/exe start\n' >/home/alice/starter
chmod 755 /home/alice/{shell,starter}
program=$(sha256sum "$(command -v kivctl)")
# the container may hide the checkout with the library; the loader also searches here
install -t /usr/lib "$(ldd "$KIVCTL" | sed -nE 's/^[[:blank:]]*libkiv[^ ]* => (.*) \(0x.*/\1/p')"
kivctl start alice
usermod --shell /home/alice/shell alice
capture kivctl exec alice
has_run 64
same stderr "[ERROR] /proc/self/exe: unknown command '/home/alice/shell'" "$err"
usermod --shell /home/alice/starter alice
capture kivctl exec alice
has_run 64
same stderr "/proc/self/exe: only root may run this program" "$err"
same "the program" "$program" "$(sha256sum "$(command -v kivctl)")"
usermod --shell /bin/bash alice
recovers alice
EOF
}

@test "names with the characters of formats, patterns and options, and names of 200 letters, do no harm" {
    with_abuse <<'EOF'
names=(%s%n bob+ "$(head -c 200 /dev/zero | tr '\0' x)")
account bobby 100.64.0.200/30
number=0
for name in "${names[@]}"; do
    number=$((number + 4))
    echo "$name:x:$((2000 + number)):100::/nonexistent:/bin/sh" >>/etc/passwd
    echo "$name net=100.64.0.$number/30" >>"$registry"
done
echo "-abc:x:3000:100::/nonexistent:/bin/sh" >>/etc/passwd # not a name for the C library
echo "-abc net=100.64.0.100/30" >>"$registry"
kivctl start bobby
for command in start stop exec status; do
    capture kivctl "$command" -abc
    has_run 71
    same "stderr of $command -abc" "kivctl: -abc: unknown user" "$err"
done
others() { iptables-save | grep -F -- '-i veth-bobby '; }
before=$(others)
for name in "${names[@]}"; do
    for _ in 1 2; do
        capture kivctl start "$name"
        echo "$name: $err"
        has_run 0
        same "files of $name" 3 "$(files_of "$name" | wc -l)"
        same "who is inside" "$(getent passwd -- "$name" | cut -d : -f 3)" "$(kivctl exec "$name" <<<'id -u' 2>/dev/null)"
        same "report" "Account: $name"$'\nActive: yes' "$(kivctl status "$name" | head -2)"
        capture kivctl stop "$name"
        has_run 0
        same "files left" "" "$(files_of "$name")"
        same "rules of another" "$before" "$(others)"
        same "rules left" "$before" "$(iptables-save | grep -F -- '-i veth-')"
        eventually eval '[ "$(ls -d /sys/class/net/veth-*)" = /sys/class/net/veth-bobby ]'
    done
done
same "who is in the other container" bobby "$(kivctl exec bobby <<<'id -un')"
EOF
}
