#!/usr/bin/env bats
# The lines of the host's password and group files that an account sees.
load helpers

@test "in the password file an account sees the system's lines and its own" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account alice2
account bob
cat >/etc/passwd <<'END'
root:x:0:0:root:/root:/bin/bash
daemon:x:1:1:daemon:/usr/sbin:/usr/sbin/nologin
bin:x:2:2:bin:/bin:/usr/sbin/nologin
sys:x:3:3:sys:/dev:/usr/sbin/nologin
adm:x:4:4:adm:/:/usr/sbin/nologin
tty:x:5:5:tty:/:/usr/sbin/nologin
man:x:6:12:man:/var/cache/man:/usr/sbin/nologin

#root:x:0:0:a comment
 root:x:0:0:an indented line
rooted:x:7:7:a longer name:/:/bin/sh
xroot:x:8:8:root::/bin/sh
www-data:x:33:33:www-data:/var/www:/usr/sbin/nologin
mysql:x:102:105:MySQL Server,,,:/nonexistent:/bin/false
alice2:x:2002:2002:alice:/home/alice2:/bin/bash
alice:x:2001:2001:the first line:/home/alice:/bin/bash
bob:x:2003:2003:alice::/home/bob:/bin/bash
Alice:x:2004:2004::/home/Alice:/bin/bash
alice:x:2005:2005:the second line:/home/alice:/bin/bash
alice
END
chown -R 2001 /home/alice
kivctl start alice
same "password file" "root:x:0:0:root:/root:/bin/bash
daemon:x:1:1:daemon:/usr/sbin:/usr/sbin/nologin
bin:x:2:2:bin:/bin:/usr/sbin/nologin
sys:x:3:3:sys:/dev:/usr/sbin/nologin
man:x:6:12:man:/var/cache/man:/usr/sbin/nologin
www-data:x:33:33:www-data:/var/www:/usr/sbin/nologin
mysql:x:102:105:MySQL Server,,,:/nonexistent:/bin/false
alice:x:2001:2001:the first line:/home/alice:/bin/bash
alice:x:2005:2005:the second line:/home/alice:/bin/bash" "$(enter alice cat /etc/passwd)"
EOF
}

@test "in the group file an account sees the system's lines and its own" {
    in_host <<'EOF'
account alice 100.64.0.4/30
cat >/etc/group <<'END'
root:x:0:
daemon:x:1:
bin:x:2:
sys:x:3:
adm:x:4:alice
tty:x:5:
man:x:12:
www-data:x:33:bob
utmp:x:43:
mysql:x:105:
customers:x:900:alice,bob
alice:x:1001:
alices:x:1002:alice
END
kivctl start alice
same "group file" "root:x:0:
daemon:x:1:
bin:x:2:
sys:x:3:
adm:x:4:alice
tty:x:5:
www-data:x:33:bob
mysql:x:105:
alice:x:1001:" "$(enter alice cat /etc/group)"
EOF
}

@test "each account sees its own line" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
kivctl start -a 2>/dev/null
same "alice's lines" "$(grep ^alice: /etc/passwd)" "$(enter alice grep -E '^(alice|bob):' /etc/passwd)"
same "bob's lines" "$(grep ^bob: /etc/passwd)" "$(enter bob grep -E '^(alice|bob):' /etc/passwd)"
EOF
}

@test "the copies have the owners and modes of the host's files" {
    in_host <<'EOF'
account alice 100.64.0.4/30
chown daemon:mail /etc/passwd
chmod 4604 /etc/passwd
chown bin:alice /etc/group
chmod 0460 /etc/group
state() { stat -c '%n %F %u:%g %a' /etc/passwd /etc/group; }
export -f state
kivctl start alice
same "owners and modes" "$(state)" "$(enter_as_root alice bash -c state)"
EOF
}

@test "the last line of a copy ends in a newline even if the host's does not" {
    in_host <<'EOF'
account alice 100.64.0.4/30
printf 'root:x:0:\nalice:x:1001:' >/etc/group
kivctl start alice
same "group file" "$(printf 'root:x:0:\nalice:x:1001:\n' | od -c)" "$(enter alice od -c /etc/group)"
EOF
}

@test "a line is copied byte for byte" {
    in_host <<'EOF'
account alice 100.64.0.4/30
printf 'root:x:0:\377\376\r\nalice:\0:1001:\t \nbob\0alice:x:\n' >/etc/group
kivctl start alice
same "group file" "$(printf 'root:x:0:\377\376\r\nalice:\0:1001:\t \n' | od -c)" "$(enter_as_root alice od -c /etc/group)"
EOF
}

@test "a missing host file is reported and missing in the container" {
    in_host <<'EOF'
account alice 100.64.0.4/30
rm /etc/group
capture kivctl start alice
same status 0 "$status"
same stderr "/etc/group: No such file or directory" "$err"
refused enter_as_root alice test -e /etc/group
same "alice's line" "$(grep ^alice: /etc/passwd)" "$(enter_as_root alice grep ^alice: /etc/passwd)"
EOF
}

@test "an account's name is taken literally, even if its characters have a meaning in expressions" {
    in_host <<'EOF'
names=('x|y' 'a*' '.*' 'a[b' 'a(b' 'a$' '^a' 'a{2}' 'a?' 'a\b')
others=(x y axb aab a ab aa b)
id=2000
for name in "${names[@]}" "${others[@]}"; do
    printf '%s\n' "$name:x:$((++id)):$id::/nonexistent:/bin/sh" >>/etc/passwd
done
kept='^(root|daemon|bin|sys|man|www-data|mysql):'
number=4
for name in "${names[@]}"; do
    printf '%s\n' "$name net=100.64.0.$((number += 4))/30" >>"$registry"
done
kivctl start -a >/dev/null 2>&1
for name in "${names[@]}"; do
    same "what $name sees" "$(name=$name awk -F: '$1 == ENVIRON["name"]' /etc/passwd)" \
        "$(enter_as_root "$name" grep -vE "$kept" /etc/passwd)"
done
EOF
}

@test "the configuration's filters have no effect" {
    in_host <<'EOF'
account alice 100.64.0.4/30
printf 'one\ntwo\n' >/srv/file
printf '%s\n' filter "    /srv/file ^one" "    /etc/passwd ^nothing" >"$configuration"
kivctl start alice
same content $'one\ntwo' "$(enter alice cat /srv/file)"
same "alice's line" "$(grep ^alice: /etc/passwd)" "$(enter alice grep ^alice: /etc/passwd)"
EOF
}

@test "a filtered file that is hidden or in an emptied directory is visible, filtered" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob
printf '%s\n' hide "    /etc/passwd" >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same "the accounts' lines" "$(grep ^alice: /etc/passwd)" "$(enter alice grep -E '^(alice|bob):' /etc/passwd)"
umount --lazy /run/kiv/alice@mnt
printf '%s\n' empty "    /etc" >"$configuration"
capture kivctl start alice
same "what the account sees" $'group\npasswd' "$(enter_as_root alice ls -A /etc)"
same "the accounts' lines" "$(grep ^alice: /etc/passwd)" "$(enter_as_root alice grep -E '^(alice|bob):' /etc/passwd)"
EOF
}

@test "a filtered file that is also bound is the host's whole file" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob
printf '%s\n' bind "    /etc/group" >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same "group file" "$(cat /etc/group)" "$(enter alice cat /etc/group)"
same "password file" "" "$(enter alice grep ^bob: /etc/passwd || true)"
EOF
}
