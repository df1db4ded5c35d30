#!/usr/bin/env bats
# The effect of allowlists and hidden paths on the root that an account sees.
load helpers

@test "an allowlist keeps the listed names of its directory and hides all others" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/site/{kept-directory/deeper,other-directory}
touch /srv/site/{kept,kept.old,other,.hidden,"two words",kept-directory/content}
printf '%s\n' "allowlist /srv/site" "    kept" "    kept-directory" "    not-there" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same "what the account sees" "/srv/site
/srv/site/kept
/srv/site/kept-directory
/srv/site/kept-directory/content
/srv/site/kept-directory/deeper" "$(enter alice find /srv/site | sort)"
same "what root sees inside" $'kept\nkept-directory' "$(enter_as_root alice ls -A /srv/site)"
EOF
}

@test "an allowlist without items hides the directory's whole content" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/site
touch /srv/site/{one,two}
printf '%s\n' "allowlist /srv/site" >"$configuration"
kivctl start alice
same "what the account sees" "" "$(enter alice ls -A /srv/site)"
test -e /srv/site/one
EOF
}

@test "a pattern in an allowlist keeps nothing, not even the name it matches" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/site
touch /srv/site/{kept,kept.old,"kept*"}
printf '%s\n' "allowlist /srv/site" "    kept*" "    *" >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same "what the account sees" "" "$(enter alice ls -A /srv/site)"
EOF
}

@test "other wildcards in an allowlist are plain characters" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/site
touch /srv/site/{'k?pt','[ab]',kept,a}
printf '%s\n' "allowlist /srv/site" "    k?pt" "    [ab]" >"$configuration"
kivctl start alice
same "what the account sees" $'[ab]\nk?pt' "$(enter alice ls -A --quoting-style=literal /srv/site)"
EOF
}

@test "an allowlist for a missing directory prints nothing and creates nothing" {
    in_host <<'EOF'
account alice 100.64.0.4/30
printf '%s\n' "allowlist /srv/not-there" "    kept" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
refused enter_as_root alice test -e /srv/not-there
EOF
}

@test "an allowlist for a file is reported and the file stays as it is" {
    in_host <<'EOF'
account alice 100.64.0.4/30
echo content >/srv/file
printf '%s\n' "allowlist /srv/file" "    kept" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "Cannot open /mnt/root/srv/file: Not a directory" "$err"
same content content "$(enter alice cat /srv/file)"
EOF
}

@test "a directory with an allowlist keeps its owner and mode, and so do its parents" {
    in_host <<'EOF'
account alice 100.64.0.4/30
install -d -o alice -g mail -m 711 /srv/outer
install -d -o daemon -g alice -m 1750 /srv/outer/site
touch /srv/outer/site/other
printf '%s\n' "allowlist /srv/outer/site" >"$configuration"
kivctl start alice
same "owners and modes" "$(stat -c '%n %u:%g %a' /srv /srv/outer /srv/outer/site)" \
    "$(enter_as_root alice stat -c '%n %u:%g %a' /srv /srv/outer /srv/outer/site)"
EOF
}

@test "two allowlists for the same directory keep the names of both" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/site
touch /srv/site/{one,two,three}
printf '%s\n' "allowlist /srv/site" "    one" hide "allowlist /srv/site" "    two" >"$configuration"
kivctl start alice
same "what the account sees" $'one\ntwo' "$(enter alice ls -A /srv/site)"
EOF
}

@test "an allowlist of homes shows the account only its own home" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
printf '%s\n' "allowlist /home" "    alice" >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same "what alice sees" alice "$(enter alice ls -A /home)"
enter alice touch /home/alice/file
test -e /home/alice/file
EOF
}

@test "a hidden home is reported and not in the container; its tmp directory is" {
    in_host <<'EOF'
account alice 100.64.0.4/30
touch /home/alice/tmp/file
printf '%s\n' hide "    /home/alice" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "bind-mount(/home/alice to /mnt/temp-root/home/alice) failed: No such file or directory" "$err"
refused enter alice test -e /home/alice
enter alice test -e /tmp/file
EOF
}

@test "hidden files and directories are invisible, also for root inside, and their neighbours stay" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/site/directory
touch /srv/site/{file,other,directory/content}
printf '%s\n' hide "    /srv/site/file" "    /srv/site/directory" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "" "$err"
same "what root sees inside" other "$(enter_as_root alice ls -A /srv/site)"
refused enter_as_root alice test -e /srv/site/file
refused enter_as_root alice test -e /srv/site/directory/content
same "what the host has" $'directory\nfile\nother' "$(ls -A /srv/site)"
EOF
}

@test "blanks and slashes around a hidden path make no difference" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/{one,two}/directory /srv/three
touch "/srv/three/two words"
printf 'hide\n\t /srv/one/directory/ \t\n    //srv//two///directory//\n    /srv/three/two words\n' >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same "what root sees inside" "" "$(enter_as_root alice ls -A /srv/one)"
same "what root sees inside" "" "$(enter_as_root alice ls -A /srv/two)"
same "what root sees inside" "" "$(enter_as_root alice ls -A /srv/three)"
EOF
}

@test "hidden paths that do not exist cause no message, whichever component is missing" {
    in_host <<'EOF'
account alice 100.64.0.4/30
printf '%s\n' hide "    /srv/not-there" "    /srv/not/there/either" "    /etc/hostname/below-a-file" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stdout "starting container: alice, network:100.64.0.4/30" "$out"
same stderr "" "$err"
same "what root sees inside" "" "$(enter_as_root alice ls -A /srv)"
EOF
}

@test "a hidden path with a link in its parent is reported and stays visible" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/real/directory
touch /srv/real/directory/file /srv/real/other
ln -s real /srv/link
printf '%s\n' hide "    /srv/link/directory/file" "    /srv/real/other" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "Path contains symlink, ignoring: /srv/link/directory/file" "$err"
enter alice test -e /srv/link/directory/file
enter alice test -e /srv/real/directory/file
refused enter alice test -e /srv/real/other
EOF
}

@test "a hidden link is invisible and its target stays" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/real
touch /srv/real/file
ln -s real /srv/link
printf '%s\n' hide "    /srv/link" >"$configuration"
capture kivctl start alice
same stderr "" "$err"
same "what the account sees" real "$(enter alice ls -A /srv)"
enter alice test -e /srv/real/file
EOF
}

@test "a hidden pattern does not hide the paths that it matches" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/site
touch /srv/site/{one,two}
printf '%s\n' hide "    /srv/site/*" "    /srv/nothing-matches/*" >"$configuration"
capture kivctl start alice
same status 0 "$status"
same stderr "recMkDir: '/mnt/root/mnt/root' doesn't exist
recMkDir: '/mnt/root/mnt/root' doesn't exist" "$err"
same "what the account sees" $'one\ntwo' "$(enter alice ls -A /srv/site)"
EOF
}

@test "a hidden pattern hides its matches below the container's /mnt/root" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/site /mnt/root/srv/site
touch {,/mnt/root}/srv/site/{one,two,other}
printf '%s\n' hide "    /srv/site/*o*" >"$configuration"
rm /srv/site/other
capture kivctl start alice
same stderr "" "$err"
same "what the account sees" $'one\ntwo' "$(enter alice ls -A /srv/site)"
same "what the account sees below /mnt/root" other "$(enter alice ls -A /mnt/root/srv/site)"
EOF
}

@test "other wildcards in a hidden path are plain characters" {
    in_host <<'EOF'
account alice 100.64.0.4/30
touch /srv/{'f?le','[ab]',file,a}
printf '%s\n' hide "    /srv/f?le" "    /srv/[ab]" >"$configuration"
kivctl start alice
same "what the account sees" $'a\nfile' "$(enter alice ls -A --quoting-style=literal /srv)"
EOF
}

@test "control characters in names that an account chose are escaped in every line about them" {
    in_host <<'EOF'
account alice 100.64.0.4/30
install -d -o alice /srv/site /srv/site/real
touch /srv/site/real/file
for name in $'1\nkivctl: bob: forged' $'2\e[2J\t\r\a' $'3\x7f\x01' $'4\xc2\x85\xc2\x9b' \
    $'5 \xc3\x85\xe2\x82\xac\xc2\xa0\x85\\\xc2'; do
    ln -s real "/srv/site/$name"
    chown -h alice "/srv/site/$name"
done
printf '%s\n' hide "    /srv/site/*/file" empty "    /srv/site/1*" >"$configuration"
capture kivctl start alice
same status 0 "$status"
below=/mnt/root//srv/site
# shellcheck disable=SC1078,SC1079 # bytes stand within the text
same stderr "Path contains symlink, ignoring: $below/1\\x0akivctl: bob: forged/file
Path contains symlink, ignoring: $below/2\\x1b[2J\\x09\\x0d\\x07/file
Path contains symlink, ignoring: $below/3\\x7f\\x01/file
Path contains symlink, ignoring: $below/4\\xc2\\x85\\xc2\\x9b/file
Path contains symlink, ignoring: $below/5 "$'\xc3\x85\xe2\x82\xac\xc2\xa0\x85\\\xc2'"/file
recMkDir: '/mnt/root/mnt/root' doesn't exist
stat(/mnt/root$below/1\\x0akivctl: bob: forged) failed: No such file or directory" "$err"
EOF
}

@test "control characters are escaped in progress and in errors, with -a line by line" {
    in_host <<'EOF'
account alice 100.64.0.4/30
home=$(printf '/srv/\033]0;x')
mkdir "$home"
sed -i "s#:/home/alice:#:$home:#" /etc/passwd
capture kivctl -d start alice
same status 0 "$status"
same stderr 'mount(/srv/\x1b]0;x/tmp) to /tmp failed: No such file or directory' "$err"
grep -qxF 'tmpdir: /srv/\x1b]0;x/tmp' <<<"$out"
capture kivctl exec $'al\ti\xc2\x85ce'
same "stderr of exec" 'kivctl: al\x09i\xc2\x85ce: unknown user' "$err"
printf '%s\n' $'al\eice net=100.64.0.4/30' "nobody-here net=100.64.0.8/30" >"$registry"
capture kivctl start -a
same "stderr of start -a" 'kivctl: al\x1bice: al\x1bice: unknown user
nobody-here: nobody-here: unknown user' "$err"
EOF
}

@test "without openat2, too, hidden paths are hidden and links in them reported" {
    for error in ENOSYS EPERM; do
        export error
        in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/real
touch /srv/real/{file,other}
ln -s real /srv/link
printf '%s\n' hide "    /srv/link/file" "    /srv/real/other" empty "    /proc/irq" bind "    /srv/real/file" \
    >"$configuration"
capture strace -f -o /tmp/trace -e trace=openat2 -e "inject=openat2:error=$error" kivctl start alice
same stderr "Path contains symlink, ignoring: /srv/link/file" "$err"
grep -q INJECTED /tmp/trace
enter alice test -e /srv/link/file
refused enter alice test -e /srv/real/other
same "what root sees inside" "" "$(enter_as_root alice ls -A /proc/irq)"
enter_as_root alice mountpoint -q /srv/real/file
enter alice test -w /home/alice
EOF
    done
}

@test "an item with parent references creates nothing outside the layer" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/{hidden,emptied,listed} /run/listed
touch /srv/{hidden,emptied,listed}/file
cat >"$configuration" <<'END'
hide
    /../../run/made-by-hide
    /srv/../../../srv/hidden
empty
    /../../srv/emptied
    /proc/../../etc
bind
    /../../run/made-by-bind
allowlist /srv/../../../srv/listed
END
before=$(find /run /mnt /srv | sort)
capture kivctl start alice
same status 0 "$status"
same stderr "mount(/proc/../../etc) failed: Invalid cross-device link" "$err"
same "what the host has" "$before" "$(find /run /mnt /srv -not -path '/run/kiv*' | sort)"
same "what root sees inside" $'/srv\n/srv/emptied\n/srv/listed' "$(enter_as_root alice find /srv | sort)"
enter alice test -e /etc/passwd
EOF
}

@test "whiteouts are character devices 0:0 of mode 0 and emptied directories carry the opaque mark" {
    in_host <<'EOF'
account alice 100.64.0.4/30
mkdir -p /srv/{listed,emptied}
touch /srv/{hidden,listed/other}
printf '%s\n' "allowlist /srv/listed" hide "    /srv/hidden" empty "    /srv/emptied" >"$configuration"
strace -f -o /tmp/trace -e trace=mknod,mknodat,setxattr kivctl start alice
made() { grep -oE '"[^"]+", (S_IFCHR|"trusted).*' /tmp/trace | sed -E 's/makedev\(0x0,/makedev(0,/; s/ += / = /'; }
same "what the layer is made of" '"other", S_IFCHR|000, makedev(0, 0)) = 0
"/mnt/kiv/srv/hidden", S_IFCHR|000, makedev(0, 0)) = 0
"/mnt/kiv/srv/emptied", "trusted.overlay.opaque", "y", 1, 0) = 0' "$(made)"
EOF
}

@test "modes in the container do not depend on the caller's umask" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
mkdir -m 777 /srv/{outer,outer/site,emptied}
chmod 664 /etc/group
printf '%s\n' hide "    /srv/outer/site/x" empty "    /srv/emptied" >"$configuration"
modes() { enter_as_root "$1" stat -c '%n %a' /srv/outer /srv/outer/site /srv/emptied /etc/group /run /run/utmp /run/mysqld; }
(umask 0 && kivctl start alice)
(umask 0777 && kivctl start bob)
expected="/srv/outer 755
/srv/outer/site 755
/srv/emptied 755
/etc/group 664
/run 755
/run/utmp 644
/run/mysqld 755"
same "modes with umask 0" "$expected" "$(modes alice)"
same "modes with umask 0777" "$expected" "$(modes bob)"
EOF
}
