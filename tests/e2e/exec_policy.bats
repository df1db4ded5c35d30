#!/usr/bin/env bats
# The configuration's lists that the container library enforces, as seen in a shell after exec.
load helpers

# configure: makes standard input the configuration.
configure() {
    cat >"$configuration"
}

# bounding_set: prints that of alice's shell, in the kernel's form.
bounding_set() {
    kivctl exec alice <<<"awk '/^CapBnd/ { print \$2 }' /proc/\$\$/status"
}

# set_of NUMBER…: prints the set of the capabilities with these numbers.
set_of() {
    local number mask=0
    for number in "$@"; do
        mask=$((mask | 1 << number))
    done
    printf '%016x' "$mask"
}

# no_entry MESSAGE: the configuration from standard input locks every account out.
no_entry() {
    configure
    capture kivctl exec alice <<<'echo a shell'
    same "exit status" 71 "$status"
    same stdout "Switching into container 'alice'..." "$out"
    same stderr "kivctl: /etc/tarnwell/kiv.conf: $1" "$err"
}

# answer COMMAND…: prints the exit status of a command in alice's shell, and its last word on
# standard error.
answer() {
    capture kivctl exec alice <<<"$*"
    echo "$status${err:+ ${err##*: }}"
}
export -f configure bounding_set set_of no_entry answer

@test "cap_add lets programs gain capabilities, with and without CAP_ and in any case" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
configure <<'END'
cap_add
    cap_net_bind_service
    Net_Raw
    CAP_CHOWN
    net_raw
END
same "chown, net_bind_service, net_raw" "$(set_of 0 10 13)" "$(bounding_set)"
same "none held" 0000000000000000 \
    "$(kivctl exec alice <<<'awk "/^Cap(Inh|Prm|Eff|Amb)/ { print \$2 }" /proc/$$/status' | sort -u)"
EOF
}

@test "names of capabilities are read in the same way in every language" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
mkdir /tmp/locales
localedef -i tr_TR -f ISO-8859-9 /tmp/locales/tr_TR # where the lower case of "I" is not "i"
printf 'cap_add\n CAP_KILL\n' >"$configuration"
export LOCPATH=/tmp/locales LANG=tr_TR
same "kill" "$(set_of 5)" "$(bounding_set)"
EOF
}

@test "a capability of cap_add works for a set-user-ID program, and no other does" {
    in_host <<'EOF'
account alice 100.64.0.4/30
chmod 711 /home/alice # for permissions, root without capabilities is an ordinary user
install -m 4755 "$(command -v setpriv)" /usr/local/bin/raise
kivctl start alice >/dev/null
printf 'cap_add\n chown\n' >"$configuration"
same "chown" 0 "$(answer 'touch f; /usr/local/bin/raise --reuid 0 chown root f')"
same "another one" "125 Operation not permitted" "$(answer '/usr/local/bin/raise --reuid 0 chroot / true')"
: >"$configuration"
same "chown without cap_add" "1 Operation not permitted" "$(answer 'rm -f f; touch f; /usr/local/bin/raise --reuid 0 chown root f')"
EOF
}

@test "cap_drop wins over cap_add in any order" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
configure <<'END'
cap_drop
    CHOWN
cap_add
    chown
    net_raw
    kill
cap_drop
    cap_kill
    sys_admin
END
same "net_raw" "$(set_of 13)" "$(bounding_set)"
EOF
}

@test "without lists, and without the file, no capability can be gained" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
printf '# nothing\ncap_add\n    # net_raw\n' >"$configuration"
same "empty lists" "$(set_of)" "$(bounding_set)"
rm "$configuration"
: >/tmp/other.conf
same "no file" "$(set_of) 2" "$(kivctl -c /tmp/other.conf exec alice \
    <<<'awk "/^(CapBnd|Seccomp):/ { print \$2 }" /proc/$$/status' | xargs)"
EOF
}

@test "the library reads its own file, even when another one is given with -c" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
printf 'cap_add\n    net_raw\nseccomp\n    deny mkdir mkdirat\n' >/tmp/other.conf
same "the other file's lists" "$(set_of)" "$(kivctl -c /tmp/other.conf exec alice \
    <<<'mkdir made; awk "/^CapBnd/ { print \$2 }" /proc/$$/status')"
mv /tmp/other.conf "$configuration"
: >/tmp/other.conf
same "its own file's lists" "mkdir: cannot create directory ‘more’: Operation not permitted
$(set_of 13)" "$(LANG=C.UTF-8 kivctl -c /tmp/other.conf exec alice 2>&1 \
    <<<'mkdir more; awk "/^CapBnd/ { print \$2 }" /proc/$$/status')"
EOF
}

@test "an unknown capability locks every account out and is named with its line" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
no_entry "line 3: unknown capability 'Net_Rawr'" <<'END'
cap_add
    net_raw
    Net_Rawr
END
no_entry "line 4: unknown capability 'CAP_'" <<'END'
# a comment

cap_drop
    CAP_
    nonsense
END
no_entry "line 2: unknown capability '13'" <<<$'cap_add\n 13'
no_entry "line 2: unknown capability 'cap_cap_chown'" <<<$'cap_add\n\tcap_cap_chown'
no_entry "line 2: unknown capability 'chown kill'" <<<$'cap_add\n chown kill'
no_entry "line 2: unknown capability 'chown,kill'" <<<$'cap_drop\n chown,kill'
EOF
}

@test "a file that cannot be read locks every account out, even when another one is given with -c" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
: >/tmp/other.conf
for fault in text directory; do
    rm -f "$configuration"
    case $fault in
        text)
            printf 'cap_add\n net_raw\nsecomp\n mount\n' >"$configuration"
            message="line 4: not parsing a list"
            ;;
        directory)
            mkdir "$configuration"
            message="error while reading from file"
            ;;
    esac
    capture kivctl -c /tmp/other.conf exec alice <<<'echo a shell'
    same "status with $fault" 71 "$status"
    same "stderr with $fault" "kivctl: /etc/tarnwell/kiv.conf: $message" "$err"
    refused test "$out" = "a shell"
done
EOF
}

@test "a system call is denied by its bare name or after deny" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
same "as it is" 0 "$(answer 'mkdir a && chmod 0700 a && rmdir a && ln -s x b')"
configure <<'END'
seccomp
    mkdir
    mkdirat
    deny  symlink	symlinkat chmod fchmod fchmodat fchmodat2
END
same mkdir "1 Operation not permitted" "$(answer mkdir a)"
same symlink "1 Operation not permitted" "$(answer ln -s x a)"
same chmod "1 Operation not permitted" "$(answer 'touch f; chmod 0 f')"
EOF
}

@test "a system call after kill ends the program that makes it" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
printf 'seccomp\n kill mkdir mkdirat\n' >"$configuration"
same "killed by SIGSYS" 159 "$(kivctl exec alice <<<'mkdir a 2>/dev/null; echo $?' 2>/dev/null)"
EOF
}

@test "a call that is denied by default can be allowed" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
same "user namespace" "1 Operation not permitted" "$(answer unshare --user true)"
same "personality" "1 Operation not permitted" "$(answer setarch --addr-no-randomize true)"
printf 'seccomp\n allow unshare\n allow personality\n' >"$configuration"
same "user namespace" 0 "$(answer unshare --user true)"
same "personality" 0 "$(answer setarch --addr-no-randomize true)"
EOF
}

@test "of several items for one call the last one counts" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
printf 'seccomp\n kill mkdir mkdirat\n deny mkdir mkdirat\n' >"$configuration"
same "denied" "1 Operation not permitted" "$(answer mkdir a)"
printf 'seccomp\n deny mkdir mkdirat\n allow mkdir mkdirat\n' >"$configuration"
same "allowed" 0 "$(answer mkdir a)"
EOF
}

@test "an invalid item of seccomp locks every account out" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
no_entry "line 2: unknown system call 'mkdri'" <<<$'seccomp\n mkdri'
no_entry "line 3: unknown system call 'MKDIR'" <<<$'seccomp\n mkdir\n deny mkdirat MKDIR mkdri'
no_entry "line 2: unknown system call '83'" <<<$'seccomp\n 83'
no_entry "line 2: 'allow' without a system call" <<<$'seccomp\n allow '
no_entry "line 2: 'forbid' is not deny, kill, allow, deny-table or allow-table" <<<$'seccomp\n forbid mkdir'
no_entry "line 2: unknown system-call table 'i686'" <<<$'seccomp\n deny-table i686'
no_entry "line 3: 'allow-table' without a system-call table" <<<$'seccomp\n deny-table i386\n allow-table'
no_entry "line 2: 'no_new_privs' takes no names" <<<$'seccomp\n no_new_privs mkdir'
EOF
}

@test "a system call of another architecture is ignored" {
    in_host <<'EOF'
account alice 100.64.0.4/30
kivctl start alice >/dev/null
printf 'seccomp\n deny s390_pci_mmio_read mkdir mkdirat\n kill s390_runtime_instr\n' >"$configuration"
same "the others" "1 Operation not permitted" "$(answer mkdir a)"
EOF
}
