#!/usr/bin/env bats
# The completions that bash offers, with the file where the install rule puts it.
load helpers

# installed: from here on bash finds the completion as on a real host.
installed() {
    cmake --install "$(dirname "$KIVCTL")/../dist/completion" --prefix /tmp/installed >/dev/null
    export XDG_DATA_DIRS=/tmp/installed/share
}

# offers WANTED WORD…: exactly the words WANTED are offered for the last WORD, which may be empty.
offers() {
    local wanted offered
    wanted=$(tr ' ' '\n' <<<"$1" | sort)
    offered=$(bash --norc "$project/tests/e2e/offer_completion" "${@:2}" 2>&1 | sort)
    same "what is offered for: ${*:2}" "$wanted" "$offered"
}
export project
export -f installed offers

@test "options, commands and accounts complete where they belong" {
    in_host <<'EOF'
installed
printf '%s\n' '# dave net=100.64.0.16/30' 'alice net=100.64.0.4/30' '  # eve' $'\tanna\tnet=100.64.0.8/30' '' \
    'bob' >"$registry"
commands="exec start stop status"
offers "$commands" ""
offers "start stop status" st
offers "$commands" -d -c /etc/x ""
offers "$commands" -dc /etc/x ""
offers "$commands" --config = /etc/x ""
offers "$commands" -- ""
offers "-c -d -h -v --config= --help --version" -
offers "--config=" --c
offers "-a alice anna bob" start ""
offers "alice anna" stop a
offers "alice" -d -c start status al
offers "-a" status -
offers "alice anna bob" exec ""
offers "" exec -
offers "" start alice ""
offers "" restart ""
EOF
}

@test "files complete after -c" {
    in_host <<'EOF'
installed
mkdir -p /tmp/files/folder
touch /tmp/files/one.conf
offers "/tmp/files/one.conf" -c /tmp/files/o
offers "/tmp/files/one.conf" --config = /tmp/files/o
offers "/tmp/files/folder" -dc /tmp/files/f
EOF
}

@test "without a readable registry only -a is offered" {
    in_host <<'EOF'
installed
rm "$registry"
offers "-a" start ""
mkdir "$registry"
offers "-a" start ""
rmdir "$registry"
mkfifo "$registry"
offers "-a" start ""
EOF
}

@test "each name of the registry is offered as one word and never run as code" {
    in_host <<'EOF'
installed
mkdir /tmp/empty
cd /tmp/empty
names=('$(touch${IFS}ran1)' '`touch${IFS}ran2`' '$(touch' 'x;touch' '*' '~root' "a'b" 'a"b' 'al\ice' 'x[$(touch${IFS}ran3)]'
    $'esc\e[2J' $'b\xe4r' '${HOME}')
left_out=('-n' '-abc' 'a@b' 'c:d' 'e=f' '../etc' '#x')
printf '%s net=100.64.0.4/30\r\n' "${names[@]}" "${left_out[@]}" >"$registry"
printf '\v\f spaced\f\r\nlast' >>"$registry"
bash --norc "$project/tests/e2e/offer_completion" exec "" >/tmp/offered
same "what was run" "" "$(ls -A)"
refused grep -q $'\e' /tmp/offered
# in a command line
words=()
eval "words=($(tr '\n' ' ' </tmp/offered))"
same "what was run of the command line" "" "$(ls -A)"
same words "$(printf '%s\n' "${names[@]}" spaced last)" "$(printf '%s\n' "${words[@]}")"
EOF
}

@test "the Tab key completes in a shell on a terminal" {
    in_host <<'EOF'
installed
account alice 100.64.0.4/30
account bob 100.64.0.8/30
HOME=/tmp "$project/tests/e2e/on_terminal" bash --norc --noprofile -i <<'STEPS'
type PS1='ready> '; source /usr/share/bash-completion/bash_completion\n
expect ^ready> 
type kivctl sto\tal\t\n
expect ^stopping container: alice, network:100.64.0.4/30
expect ^ready> 
type kivctl --ver\t\n
expect version 3
expect ^ready> 
type kivctl status \t\t
expect -a +alice +bob
type b\t\n
expect Account: bob
expect ^ready> 
type exit\n
STEPS
EOF
}

@test "kiv-run's options, accounts and commands complete where they belong" {
    in_host <<'EOF'
installed
export PROGRAM=kiv-run
printf '%s\n' 'alice net=100.64.0.4/30' 'anna net=100.64.0.8/30' 'bob' >"$registry"
mkdir -p /tmp/files/folder
touch /tmp/files/file
offers "alice anna bob" ""
offers "alice anna" a
offers "alice anna bob" -T -u 022 -e A=B ""
offers "alice anna bob" -Tu 022 ""
offers "alice anna bob" --preserve-fds = 2 ""
offers "alice anna bob" --preserve-fds 2 ""
offers "alice anna bob" --start -- ""
offers "-C -T -e -h -t -u -v --help --no-pty --preserve-fds= --pty --start --version" -
offers "--start" --st
offers "/tmp/files/folder" -C /tmp/files/f
offers "" -e ""
PATH=/usr/bin # else commands appear twice
offers "setpriv" alice setpr
offers "setpriv" alice -- setpr
offers "setpriv" -u 077 -- alice setpr
offers "/tmp/files/file" alice cat /tmp/files/fi
EOF
}

@test "kiv-list's options and accounts complete in any order" {
    in_host <<'EOF'
installed
export PROGRAM=kiv-list
printf '%s\n' 'alice net=100.64.0.4/30' 'bob' >"$registry"
offers "alice bob" ""
offers "bob" alice --json b
offers "-h -v --help --json --version" alice -
offers "alice" -- al
offers "" -- -
EOF
}

@test "kiv-refresh's options and accounts complete in any order" {
    in_host <<'EOF'
installed
export PROGRAM=kiv-refresh
printf '%s\n' 'alice net=100.64.0.4/30' 'anna net=100.64.0.8/30' 'bob' >"$registry"
mkdir -p /tmp/files
touch /tmp/files/file
offers "-a alice anna bob" ""
offers "alice anna" a
offers "-a alice anna bob" --in-place -d ""
offers "alice anna bob" -- ""
offers "-a -c -d -h -v --config= --help --in-place --version" -
offers "--in-place" alice --i
offers "" alice ""
offers "" -a ""
offers "/tmp/files/file" alice -dc /tmp/files/fi
offers "-a alice anna bob" -c /tmp/files/file ""
EOF
}

@test "kiv-check's options and files complete" {
    in_host <<'EOF'
installed
export PROGRAM=kiv-check
mkdir -p /tmp/files
touch /tmp/files/one.conf
offers "-c -h -q -r -v --config= --help --host --json --quiet --registry= --strict --version" -
offers "--host" --ho
offers "/tmp/files/one.conf" -c /tmp/files/o
offers "/tmp/files/one.conf" --host -qr /tmp/files/o
offers "/tmp/files/one.conf" --registry = /tmp/files/o
offers "" ""
EOF
}
