#!/usr/bin/env bats
# The example hook of adduser(8), called by the real adduser.
load helpers

# installed: from here on adduser calls it.
installed() { install -D -m 755 "$project/dist/adduser/adduser.local" /usr/local/sbin/adduser.local; }

add() { adduser --quiet --disabled-password --comment '' "$@" </dev/null; }
export project
export -f installed add

@test "adduser makes an account whose container starts, with the lowest free network" {
    in_host <<'END'
installed
printf '%s\n' '# x net=100.64.0.8/30' 'old net=100.64.0.4/30' 'big  net=100.64.0.16/28' >"$registry"
printf 'last net=100.64.0.13/30' >>"$registry"
for name in alice bob; do
    add "$name"
    same "tmp" "$name $name 700" "$(stat -c '%U %G %a' "/home/$name/tmp")"
done
same "registry" '# x net=100.64.0.8/30
old net=100.64.0.4/30
big  net=100.64.0.16/28
last net=100.64.0.13/30
alice net=100.64.0.8/30
bob net=100.64.0.32/30' "$(cat "$registry")"
kivctl start alice
same "/tmp is hers" "/home/alice/tmp" "$(enter alice touch /tmp/x; dirname "$(ls /home/alice/tmp/x)")"
END
}

@test "a listed account keeps its line, system users get none, and root follows no links in an old home" {
    in_host <<'END'
installed
echo 'alice net=100.64.9.0/30' >"$registry"
mkdir /home/bob /etc/of-root
ln -s /etc/of-root /home/bob/tmp
add alice
add bob
adduser --quiet --system --home /nonexistent --no-create-home service
adduser.local daemon 1 1 /usr/sbin
same "registry" $'alice net=100.64.9.0/30\nbob net=100.64.0.4/30' "$(cat "$registry")"
same "owner of what a link leads to" "root 755" "$(stat -c '%U %a' /etc/of-root)"
END
}
