#!/usr/bin/env bats
# Configurations that are refused or accepted as written, and files that are not text.
load helpers

# The state that a start would change on the host.
state() {
    find /run/kiv 2>/dev/null || true
    cut -d ' ' -f 5- /proc/self/mountinfo
    ip -o link
    iptables-save | sed '/^#/d'
}
export -f state

@test "a mistake in the configuration is refused with its line before anything is created" {
    in_host <<'EOF'
account alice 100.64.0.4/30
before=$(state)
# refuses TEXT MESSAGE
refuses() {
    # shellcheck disable=SC2059 # a text with escapes
    printf "$1" >"$configuration"
    capture kivctl start alice
    same "status for '$1'" 64 "$status"
    same "stdout for '$1'" "" "$out"
    same "stderr for '$1'" "kivctl: /etc/tarnwell/kiv.conf: $2" "$err"
    same "state of the host for '$1'" "$before" "$(state)"
}
refuses '    /srv/file\n' "line 1: not parsing a list"
refuses '\thide\n' "line 1: not parsing a list"
refuses ' \n' "line 1: not parsing a list"
refuses '\n# comment\n\nhidden\n\n    # comment\n    /srv/file\n' "line 7: not parsing a list"
refuses 'hide\n    /srv/file\nHide\n    /srv/file\n' "line 4: not parsing a list"
refuses 'hide\t\n    /srv/file\n' "line 2: not parsing a list"
refuses 'allowlist\t/srv\n    file\n' "line 2: not parsing a list"
refuses 'hide\r\n    /srv/file\r\n' "line 2: not parsing a list"
refuses 'hide\0\n    /srv/file\n' "line 2: not parsing a list"
refuses '\357\273\277hide\n    /srv/file\n' "line 2: not parsing a list"
refuses '\377\376h\0i\0d\0e\0\n\0 \0 \0/\0' "line 2: unexpected arguments"
refuses 'hide /srv/file\n' "line 1: unexpected arguments"
refuses 'hide # comment\n' "line 1: unexpected arguments"
refuses 'unknown section\n' "line 1: unexpected arguments"
refuses 'filter /etc/passwd ^root\n' "line 1: unexpected arguments"
refuses 'allowlist\n' "line 1: missing argument to allowlist"
refuses 'hide\nallowlist \n' "line 2: missing argument to allowlist"
refuses 'allowlist /srv /home\n' "line 1: missing argument to allowlist"
refuses 'filter\n    /etc/passwd\n' "line 2: value is not a pair"
refuses 'filter\n    /etc/passwd \t\r\n' "line 2: value is not a pair"
refuses 'filter\n    \n' "line 2: value is not a pair"
refuses 'filter\n    /etc/passwd ^a\0b\n' "line 2: NUL byte in regular expression"
refuses 'hide /one\nhide /two\n' "line 1: unexpected arguments"
EOF
}

@test "a filter that is not a regular expression is refused with its line" {
    in_host <<'EOF'
account alice 100.64.0.4/30
before=$(state)
for expression in '^(root' '[a' 'a\' '(${USER}'; do
    printf '%s\n' filter "    /etc/group ^fine" "    /etc/passwd $expression" >"$configuration"
    capture kivctl start alice
    same "status for '$expression'" 64 "$status"
    [[ $err == "kivctl: /etc/tarnwell/kiv.conf: line 3: "?* ]]
    same "lines for '$expression'" 1 "$(wc -l <<<"$err")"
    same "state of the host for '$expression'" "$before" "$(state)"
done
EOF
}

@test "sections that are unknown, empty, repeated or followed by blanks are accepted" {
    in_host <<'EOF'
account alice 100.64.0.4/30
touch /srv/{one,two,three,four}
printf '%s\n' unknown "# only its items would be a mistake" cap_add "    CAP_NET_RAW" cap_drop \
    filter "    /etc/passwd ^\${USER}:" "    /etc/passwd ^(x|y)" seccomp "    anything" \
    "hide  " "# a comment" "" "    /srv/one" "    # another" " # one more" $'\t/srv/two' \
    empty hide "    /srv/three" "    /srv/three" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same "what the account sees" four "$(enter alice ls -A /srv)"
EOF
}

@test "the last line of the configuration needs no newline" {
    in_host <<'EOF'
account alice 100.64.0.4/30
touch /srv/file
printf 'hide\n    /srv/file' >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same "what the account sees" "" "$(enter alice ls -A /srv)"
EOF
}

@test "an empty item in a list does nothing, and one of bind is reported" {
    in_host <<'EOF'
account alice 100.64.0.4/30
touch /srv/file
printf '%s\n' "allowlist /home" "    alice" "   " hide "   " bind "   " >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "bind-mount() failed: Invalid argument" "$err"
enter alice test -e /srv/file -a -w /home/alice
EOF
}

@test "paths that are not valid text are used byte for byte" {
    for language in C C.UTF-8; do
        export language
        in_host <<'EOF'
account alice 100.64.0.4/30
touch $'/srv/\377\376' $'/srv/caf\303\251' /srv/other
printf 'hide\n    /srv/\377\376\n    /srv/caf\303\251\n    /srv/\303\n' >"$configuration"
capture env LANG="$language" kivctl start alice
same stderr "" "$err"
same "what the account sees" other "$(enter alice ls -A /srv)"
EOF
    done
}

@test "a NUL byte ends a path but not the file" {
    in_host <<'EOF'
account alice 100.64.0.4/30
touch /srv/{file,file2,other}
printf 'hide\n    /srv/file\0name\n    /srv/file2\n' >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same "what the account sees" other "$(enter alice ls -A /srv)"
EOF
}

@test "items of a megabyte are too long for a path and do no other harm" {
    in_host <<'EOF'
account alice 100.64.0.4/30
touch /srv/{file,other}
long=$(head -c 1000000 /dev/zero | tr '\0' x)
printf '%s\n' "#$long" "$long" hide "    /srv/$long" "    /srv/file" "allowlist /opt/$long" "    $long" >"$configuration"
capture timeout 60 kivctl start alice
same status 0 "$status"
same "end of stderr" ": File name too long" "${err: -20}"
same "lines of stderr" 1 "$(wc -l <<<"$err")"
same "what the account sees" other "$(enter alice ls -A /srv)"
EOF
}

@test "a million lines are read in a few seconds" {
    in_host <<'EOF'
account alice 100.64.0.4/30
touch /srv/{file,other}
{
    seq -f "# comment %.0f" 400000
    echo seccomp
    seq -f "    item %.0f" 400000
    echo "allowlist /srv"
    seq -f "    name-%.0f" 200000
    printf '%s\n' "    other" hide "    /srv/file" item
} >"$configuration"
capture timeout 60 kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same "what the account sees" other "$(enter alice ls -A /srv)"
EOF
}

@test "the line number of a mistake counts a million lines" {
    in_host <<'EOF'
head -c 1000000 /dev/zero | tr '\0' '\n' >"$configuration"
echo "    item" >>"$configuration"
capture timeout 60 kivctl start -a
same status 64 "$status"
same stderr "kivctl: /etc/tarnwell/kiv.conf: line 1000001: not parsing a list" "$err"
EOF
}

@test "a configuration that cannot be opened or read is refused before anything is created" {
    in_host <<'EOF'
account alice 100.64.0.4/30
before=$(state)
# refuses PATH MESSAGE
refuses() {
    capture kivctl --config="$1" start alice
    same "status for '$1'" 64 "$status"
    same "stdout for '$1'" "" "$out"
    same "stderr for '$1'" "kivctl: $1: $2" "$err"
    same "state of the host for '$1'" "$before" "$(state)"
}
ln -s loop /srv/loop
ln -s not-there /srv/dangling
for path in /srv/not-there /etc/hostname/below-a-file /srv/loop /srv/dangling "" "$(printf '%5000s' x)"; do
    refuses "$path" "cannot open file $path"
done
refuses /srv "error while reading from file"
rm "$configuration"
capture kivctl start alice
same status 64 "$status"
same stderr "kivctl: /etc/tarnwell/kiv.conf: cannot open file /etc/tarnwell/kiv.conf" "$err"
EOF
}

@test "a configuration that root may not read is refused" {
    in_host <<'EOF'
account alice 100.64.0.4/30
chown nobody "$configuration"
chmod 000 "$configuration"
capture setpriv --bounding-set -dac_override,-dac_read_search kivctl start alice
same status 64 "$status"
same stderr "kivctl: /etc/tarnwell/kiv.conf: cannot open file /etc/tarnwell/kiv.conf" "$err"
EOF
}

@test "a configuration given with -c replaces the usual one and is named in its errors" {
    in_host <<'EOF'
account alice 100.64.0.4/30
touch /srv/{file,other}
echo "a broken configuration" >"$configuration"
cd /tmp
printf '%s\n' hide "    /srv/file" >"other configuration"
echo "    item" >broken
capture kivctl -c broken start alice
same status 64 "$status"
same stderr "kivctl: broken: line 1: not parsing a list" "$err"
capture kivctl -c broken --config "other configuration" start alice
same status 0 "$status"
same stderr "" "$err"
same "what the account sees" other "$(enter alice ls -A /srv)"
EOF
}
