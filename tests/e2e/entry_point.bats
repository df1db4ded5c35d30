#!/usr/bin/env bats
# Who may run the program, its command line, and its output and exit status before a command begins.
load helpers

# The state that a command would change on the host.
state() {
    find /run/kiv 2>/dev/null || true
    cut -d ' ' -f 5- /proc/self/mountinfo
    ip -o link
    iptables-save | sed '/^#/d'
}
export -f state

# as_nobody ARGUMENTS…: runs a copy of the program, because other users may have no access to the
# original.
as_nobody() {
    install "$(command -v kivctl)" /usr/local/bin/kivctl
    install "$(dirname "$KIVCTL")/../lib/libkiv.so.1" /usr/lib/libkiv.so.1
    setpriv --reuid nobody --regid nogroup --clear-groups /usr/local/bin/kivctl "$@"
}
export -f as_nobody

@test "only root may run commands" {
    in_host <<'EOF'
account alice 100.64.0.4/30
before=$(state)
for command in start stop status exec; do
    capture as_nobody "$command" alice
    same "status of $command" 64 "$status"
    same "stdout of $command" "" "$out"
    same "stderr of $command" "/usr/local/bin/kivctl: only root may run this program" "$err"
done
same "state of the host" "$before" "$(state)"
EOF
}

@test "the effective user must be root" {
    in_host <<'EOF'
capture setpriv --ruid 65534 kivctl start -a
same status 0 "$status"
same stderr "" "$err"
EOF
}

@test "a caller who is not root gets errors about the command line but none about the configuration" {
    in_host <<'EOF'
echo "    broken" >"$configuration"
capture as_nobody -c /etc/not-there start alice
same status 64 "$status"
same stderr "/usr/local/bin/kivctl: only root may run this program" "$err"
capture as_nobody start
same status 64 "$status"
same stderr "[ERROR] /usr/local/bin/kivctl: missing user name (or '-a' option)" "$err"
EOF
}

@test "version and help are for every user and need no configuration" {
    in_host <<'EOF'
for state in broken missing; do
    [ "$state" = missing ] && rm "$configuration" || echo "    broken" >"$configuration"
    for option in -v --version --versi "-c /etc/not-there -v"; do
        # shellcheck disable=SC2086 # some are several words
        capture as_nobody $option
        same "status of $option" 0 "$status"
        same "stdout of $option" "Tarnwell Account Container (KIV) version 3.3.0 (build 18139)" "$out"
        same "stderr of $option" "" "$err"
    done
    for option in -h --help "-h -c x" "-d -h start"; do
        # shellcheck disable=SC2086 # some are several words
        capture as_nobody $option
        same "status of $option" 0 "$status"
        same "usage of $option" "Usage: /usr/local/bin/kivctl [options] [command]" "$(grep ^Usage <<<"$out")"
        same "stderr of $option" "" "$err"
    done
done
EOF
}

@test "the help screen is a logo, the help text, a rule and a copyright line" {
    in_host <<'EOF'
kivctl -c /etc/not-there --help >/tmp/out
same "the line after the logo" "" "$(sed -n 6p /tmp/out)"
same "what is left of an empty logo" 5 "$(head -5 /tmp/out | grep -c .)"
same "the help text" "Usage: kivctl [options] [command]

Options:
  -c, --config=FILE     use configuration file FILE
                        default: /etc/tarnwell/kiv.conf

Commands:
  exec   <user>         run shell within container of user <user>
  start  <user> | -a    start container for user <user>, or with '-a' for all configured users
  stop   <user> | -a    stop container for user <user>, or with '-a' for all configured users
  status <user> | -a    show container status for user <user>, or with '-a' for all configured users
  -h, --help            show this help
  -v, --version         show program version" "$(sed -n 7,19p /tmp/out)"
same "the rule" "$(printf '%78s' '' | tr ' ' _)" "$(sed -n 20p /tmp/out)"
grep -q ^Copyright <(sed -n 21p /tmp/out)
same "what follows" $'\n.' "$(sed 1,21d /tmp/out; echo .)"
EOF
}

@test "a mistake on the command line yields one error line and changes nothing" {
    in_host <<'EOF'
account alice 100.64.0.4/30
before=$(state)
# refuses MESSAGE ARGUMENTS…
refuses() {
    capture kivctl "${@:2}"
    same "status of '${*:2}'" 64 "$status"
    same "stdout of '${*:2}'" "" "$out"
    same "stderr of '${*:2}'" "[ERROR] kivctl: $1" "$err"
}
refuses "missing command (use '-h' for help)"
refuses "missing command (use '-h' for help)" -d
refuses "option '-c' requires an argument." -c
refuses "option '-c' requires an argument." --config
refuses "option '-k' requires an argument." -k
refuses "unknown option '-x'" -x status -a
refuses "unknown option '--foo'" --foo
refuses "unknown option '-\\x01'" $'-\001'
refuses "unknown option '-\\xff'" $'-\377'
refuses "unknown option '-%'" -%s
refuses "unknown command 'restart'" restart x
refuses "unknown command 'Start'" Start alice
refuses "unknown command ''" ""
refuses "unknown command '%s'" %s
refuses "unknown command 'alice'" alice start
refuses "missing user name" exec
refuses "missing user name (or '-a' option)" start
refuses "missing user name (or '-a' option)" stop
refuses "missing user name (or '-a' option)" status
refuses "unknown option '-q'" start -q
refuses "unknown option '-'" start -
refuses "unknown option '--all'" start --all
refuses "too many arguments" start alice bob
refuses "too many arguments" start -a alice
refuses "too many arguments" start -a -h
refuses "too many arguments" exec alice true
same "state of the host" "$before" "$(state)"
EOF
}

@test "error lines begin with the name under which the program was called" {
    in_host <<'EOF'
ln -s "$(command -v kivctl)" "/tmp/another name"
named() { (exec -a "$1" kivctl "${@:2}"); }
capture "/tmp/another name" start alice
same stderr "/tmp/another name: KIV not configured for requested user" "$err"
capture named %s%n -c /etc/not-there start alice
same stderr "%s%n: /etc/not-there: cannot open file /etc/not-there" "$err"
EOF
}

@test "without an argument 0 the program is called kivctl" {
    in_host <<'EOF'
cat >/tmp/nameless.c <<'END'
#include <unistd.h>
int main(int argc, char** argv) {
    char* none[] = {0};
    return execv(argv[argc - 1], none);
}
END
cc -w -o /tmp/nameless /tmp/nameless.c
named() { (exec -a "$1" kivctl "${@:2}"); }
capture /tmp/nameless "$(command -v kivctl)"
same status 64 "$status"
same stderr "[ERROR] kivctl: missing command (use '-h' for help)" "$err"
capture named "" start alice
same status 71 "$status"
same stderr "kivctl: KIV not configured for requested user" "$err"
same "usage" "Usage: kivctl [options] [command]" "$(named "" -h | grep ^Usage)"
EOF
}

@test "output to a file has no colours" {
    in_host <<'EOF'
script -qec "kivctl -h >/tmp/help; kivctl restart 2>/tmp/mistake; true" /tmp/terminal >/dev/null
refused grep -q $'\e' /tmp/help /tmp/mistake /tmp/terminal
test -s /tmp/help
same "error line" "[ERROR] kivctl: unknown command 'restart'" "$(cat /tmp/mistake)"
EOF
}

@test "on a terminal the logo and the lines below the help text are red" {
    in_host <<'EOF'
script -qec "kivctl -h 2>/tmp/err" /dev/null | tr -d '\r' >/tmp/terminal
kivctl -h >/tmp/file
red=$'\e[31m' reset=$'\e[0m'
same "help screen" "$(sed "1s/^/$red/; 6s/^/$reset/; 20s/^/$red/; 21s/\$/$reset/" /tmp/file; echo .)" \
    "$(cat /tmp/terminal; echo .)"
EOF
}

@test "when standard error is a terminal, a usage error's colours go to standard output, even to a file" {
    in_host <<'EOF'
script -qec "kivctl restart >/tmp/out; true" /dev/null | tr -d '\r' >/tmp/terminal
same "terminal" "[ERROR] kivctl: unknown command 'restart'" "$(cat /tmp/terminal)"
same "standard output" $'\e[31m\e[0m' "$(cat /tmp/out)"
script -qec "kivctl restart; true" /dev/null | tr -d '\r' >/tmp/terminal
same "both on the terminal" $'\e[31m[ERROR]\e[0m kivctl: unknown command \'restart\'' "$(cat /tmp/terminal)"
EOF
}

@test "texts of the front end come from the catalogue of the caller's language" {
    in_host <<'EOF'
mkdir -p /usr/share/locale/de/LC_MESSAGES
msgfmt -o /usr/share/locale/de/LC_MESSAGES/kivctl.mo - <<'END'
msgid ""
msgstr "Content-Type: text/plain; charset=UTF-8\n"
msgid "ERROR"
msgstr "FEHLER"
msgid "unknown command '%s'"
msgstr "%s? %n '%s'"
msgid "only root may run this program"
msgstr "nur für root"
msgid "show program version"
msgstr "zeigt die Version"
END
german
capture kivctl restart
same stderr "[FEHLER] kivctl: restart? %n 'restart'" "$err"
capture as_nobody start -a
same stderr "/usr/local/bin/kivctl: nur für root" "$err"
same "last option" "  -v, --version         zeigt die Version" "$(kivctl -h | grep -e --version)"
same "version" "Tarnwell Account Container (KIV) version 3.3.0 (build 18139)" "$(kivctl -v)"
capture env -u LOCPATH LC_ALL=C kivctl restart
same stderr "[ERROR] kivctl: unknown command 'restart'" "$err"
EOF
}
