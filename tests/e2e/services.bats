#!/usr/bin/env bats
# The examples of dist/services, installed as its README.md explains, on a host with the sample
# configuration, with real php-fpm and nginx. The commands that start a service come from its unit.
# tests/hosting runs all of them with systemd.
load helpers

# with_services <<'EOF' … EOF: like in_host, with the functions of tests/e2e/services.bash, too.
with_services() {
    local script
    script=$(cat)
    in_host <<<"source '$BATS_TEST_DIRNAME/services.bash'; $script"
}
export project

@test "systemd accepts the units" {
    with_services <<'EOF'
host_of_services
cp "$(dirname "$KIVCTL")/../dist/systemd/kivctl.service" /etc/systemd/system
install -D "$KIVCTL" "$(sed -n 's/^ExecStart=\([^ ]*\).*/\1/p' /etc/systemd/system/kivctl.service)"
for unit in kiv-php@.service kiv-app@.service kiv-job@.service kiv-job@.timer; do
    capture systemd-analyze verify --man=no "$examples/${unit/@/@alice}"
    same "what it says of $unit" "0  " "$status $out $err"
done
EOF
}

@test "PHP pages of two accounts run in their containers, keep sessions, take uploads and reach the database" {
    with_services <<'EOF'
two_sites
echo content >/tmp/file
for name in alice bob; do
    answer=$(page "$name.example" / --cookie "PHPSESSID=abcdef" --form file=@/tmp/file)
    again=$(page "$name.example" /index.php --cookie "PHPSESSID=abcdef")
    address=$(kiv-run "$name" hostname -I)
    same "page of $name" "user: $name
namespace: mnt:[$(stat -Lc %i "/run/kiv/$name@mnt")]
homes: $name
session: abcdef 1
upload in: /home/$name/php/uploads
kept: yes
database: small database server, caller ${address% }" "$answer"
    same "session of $name" "session: abcdef 2" "$(grep session <<<"$again")"
    same "session's file" "600 $name" "$(stat -c '%a %U' "/home/$name/php/sessions/sess_abcdef")"
    same "upload" "content $name" "$(cat "/home/$name/upload") $(stat -c %U "/home/$name/upload")"
    all_inside "$name"
    same "in the account's control group" "$(pgrep --uid "$name" | sort)" \
        "$(sort "/sys/fs/cgroup/user.slice/user-$(id -u "$name").slice/kiv/cgroup.procs")"
    same "errors" "" "$(grep -vE ' NOTICE: ' "/home/$name/php/error.log")"
done
EOF
}

@test "a pool reads its configuration again, in the same process and container" {
    with_services <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
host_of_services
site_of alice
nginx
echo '<?php echo ini_get("upload_max_filesize");' >/home/alice/site/limit.php
same before 16M "$(page alice.example /limit.php)"
sed -i 's/^\(php_admin_value\[upload_max_filesize\]\) = .*/\1 = 5M/' /etc/kiv/php-fpm.conf
eval "$(readme_commands Settings)"
reload_unit kiv-php@.service "$main"
taken_over() { [ "$(page alice.example /limit.php)" = 5M ]; }
eventually taken_over
all_inside alice
test -d "/proc/$main"
EOF
}

@test "stopping the container ends its pool, and a pool without a container exits with 125" {
    with_services <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
host_of_services
site_of alice
kivctl stop alice
fails 0 wait "$main"
same "processes of alice" "" "$(pgrep --uid alice)"
while read -r line; do
    capture run_command_of kiv-php@.service alice "$line"
    same "status and words" "125  kiv-run: /run/kiv/alice@net: container is not running, start it with: kivctl start alice" \
        "$status $out $err"
done < <(unit_lines kiv-php@.service ExecStartPre; unit_lines kiv-php@.service ExecStart)
EOF
}

@test "nginx serves no file through an account's link unless the account owns the file" {
    with_services <<'EOF'
two_sites
echo secret >/etc/secret
install -o bob -m 644 /dev/stdin /home/bob/site/secret.txt <<<secret
kiv-run alice sh -c 'cd site; echo mine >mine.txt; ln -s mine.txt link.txt; ln -s /etc/secret host.txt
    ln -s /home/bob/site/secret.txt bob.txt; ln -s /home/bob/site bob; ln -s /etc/secret host.php; echo hidden >.hidden.txt'
same "of her own" "mine 200" "$(page alice.example /link.txt) $(http_status alice.example /link.txt)"
rm /home/alice/site/index.php # it would answer instead
for path in /host.txt /bob.txt /bob/secret.txt /host.php /.hidden.txt; do
    same "answer to $path" "" "$(page alice.example "$path" | grep -E 'secret|hidden')"
done
EOF
}

@test "a link in place of the socket leads to another container, which does not see the account's pages" {
    with_services <<'EOF'
two_sites
kiv-run alice ln -sf /home/bob/run/php.sock run/php.sock
same "answer" "File not found. 404" "$(page alice.example /) $(http_status alice.example /)"
same "bob's own" "user: bob" "$(page bob.example / | head -n 1)"
all_inside alice
all_inside bob
EOF
}

@test "an application answers through its socket, from its container" {
    with_services <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
host_of_services
setfacl --modify user:www-data:x /home/alice
cp nginx-site.conf /etc/nginx/sites-enabled/alice
drop_in kiv-app@.service 'Environment="COMMAND=python3 server.py"'
kiv-run alice mkdir app
install -o alice -g alice /dev/stdin /home/alice/app/server.py <"$project/tests/e2e/programs/server.py"
nginx
answers() { [ "$(http_status app.alice.example /)" = 200 ]; }
for round in first second; do
    start_unit kiv-app@.service alice
    eventually answers
    same "answer of the $round" "alice mnt:[$(stat -Lc %i /run/kiv/alice@mnt)] /a?b=c production" \
        "$(page app.alice.example '/a?b=c')"
    all_inside alice
    kill -KILL "$main" # its socket stays
    fails 137 wait "$main"
done
EOF
}

@test "a job of a timer runs in the container, and its status is the unit's" {
    with_services <<'EOF'
account alice 100.64.0.4/30
kivctl start alice
host_of_services
install -o alice -m 755 /dev/stdin /home/alice/job <<<'#!/bin/sh
echo "$(id -un) $PWD $(readlink /proc/self/ns/mnt)" && exit 3'
start_unit kiv-job@.service alice
fails 3 wait "$main"
same "what it says" "alice /home/alice mnt:[$(stat -Lc %i /run/kiv/alice@mnt)]" "$(cat /tmp/alice.log)"
EOF
}
