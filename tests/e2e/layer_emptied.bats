#!/usr/bin/env bats
# The effect of emptied directories on the root that an account sees.
load helpers

@test "an emptied directory is empty and has the owner and mode of the host's" {
    in_host <<'EOF'
account alice 100.64.0.4/30
install -d -o daemon -g mail -m 1751 /srv/site
mkdir /srv/site/directory
touch /srv/site/{file,.hidden}
printf '%s\n' empty "    /srv/site" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same "what root sees inside" "" "$(enter_as_root alice ls -A /srv/site)"
same "owner and mode" "$(stat -c '%u:%g %a' /srv/site)" "$(enter_as_root alice stat -c '%u:%g %a' /srv/site)"
test -e /srv/site/file
EOF
}

@test "an emptied directory that is also hidden exists and is empty" {
    in_host <<'EOF'
account alice 100.64.0.4/30
install -d -o daemon -g mail -m 751 /srv/site
touch /srv/site/file
printf '%s\n' hide "    /srv/site" empty "    /srv/site" >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same "what root sees inside" "" "$(enter_as_root alice ls -A /srv/site)"
same "owner and mode" "$(stat -c '%u:%g %a' /srv/site)" "$(enter_as_root alice stat -c '%u:%g %a' /srv/site)"
EOF
}

@test "an emptied directory that its parent's allowlist hides exists and is empty" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/site/{one,two}
touch /srv/site/one/file
printf '%s\n' "allowlist /srv/site" empty "    /srv/site/one" >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same "what root sees inside" $'/srv/site\n/srv/site/one' "$(enter_as_root alice find /srv/site)"
EOF
}

@test "a missing emptied directory is reported" {
    in_host <<'EOF'
account alice 100.64.0.4/30
printf '%s\n' empty "    /srv/not-there" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "stat(/mnt/root/srv/not-there) failed: No such file or directory" "$err"
refused enter_as_root alice test -e /srv/not-there
EOF
}

@test "a directory that is emptied twice is reported once and is empty" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /srv/site
touch /srv/site/file
printf '%s\n' empty "    /srv/site" "    /srv/site" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "/mnt/kiv/srv/site already exists - don't know...!?" "$err"
same "what root sees inside" "" "$(enter_as_root alice ls -A /srv/site)"
EOF
}

@test "a directory in which something is hidden cannot be emptied and stays as it is" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /srv/site
touch /srv/site/{file,other}
printf '%s\n' hide "    /srv/site/file" empty "    /srv/site" >"$configuration"
capture kivctl start alice
same stderr "/mnt/kiv/srv/site already exists - don't know...!?" "$err"
same "what root sees inside" other "$(enter_as_root alice ls -A /srv/site)"
EOF
}

@test "an emptied pattern empties nothing and is reported for each match" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir /srv/{one,two}
touch /srv/{one,two}/file
printf '%s\n' empty "    /srv/*" "    /srv/one/no*thing" >"$configuration"
capture kivctl start alice
same stderr "stat(/mnt/root/mnt/root//srv/one) failed: No such file or directory
stat(/mnt/root/mnt/root//srv/two) failed: No such file or directory" "$err"
enter alice test -e /srv/one/file -a -e /srv/two/file
EOF
}

@test "an emptied file becomes an empty directory of the file's mode" {
    in_host <<'EOF'
account alice 100.64.0.4/30
install -o daemon -g mail -m 604 /dev/null /srv/file
printf '%s\n' empty "    /srv/file" >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same "what root sees inside" "directory 604 $(stat -c %u:%g /srv/file)" \
    "$(enter_as_root alice stat -c '%F %a %u:%g' /srv/file)"
EOF
}

@test "emptied directories in /proc are covered by an empty one, and the layer does not report them" {
    in_host <<'EOF'
account alice 100.64.0.4/30
printf '%s\n' empty "    /proc/irq" "    /proc/fs" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same "what root sees inside" $'/proc/fs\n/proc/irq' "$(enter_as_root alice find /proc/irq /proc/fs | sort)"
same "what root sees inside" "root:root 755" "$(enter_as_root alice stat -c '%U:%G %a' /proc/irq)"
[ -n "$(ls -A /proc/irq)" ]
EOF
}

@test "emptied paths in /proc that cannot be covered are reported" {
    in_host <<'EOF'
account alice 100.64.0.4/30
printf '%s\n' empty "    /proc/not-there" "    /proc/version" "    /proc/ir*" "    /proc/self/task" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "mount(/proc/not-there) failed: No such file or directory
mount(/proc/version) failed: Not a directory
mount(/proc/ir*) failed: No such file or directory
mount(/proc/self/task) failed: Too many levels of symbolic links" "$err"
enter alice grep -q Linux /proc/version
EOF
}
