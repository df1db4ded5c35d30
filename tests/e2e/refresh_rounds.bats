#!/usr/bin/env bats
# Repeated refreshes at the same time as lookups inside, start, exec and stop: 200 with
# KIVCTL_ABUSE_FULL, else a few.
load helpers
load with_abuse

# held: makes /srv/held a file system that can be mounted only once at a time, which detects a view
# that still holds it.
held() {
    mkdir -p /srv/held /tmp/held/{lower,upper,work}
    mount -t overlay -o index=on,lowerdir=/tmp/held/lower,upperdir=/tmp/held/upper,workdir=/tmp/held/work overlay \
        /srv/held 2>/dev/null
}

# looks NAME: the account checks its view without pause until the file /tmp/end exists, and records
# errors. One process stays in its view; the others enter each time.
looks() {
    # shellcheck disable=SC2016 # for the shell inside
    local look='[ -s /usr/share/tool ] || echo "no tool"
        [ ! -e /etc/secret ] || echo "a secret"
        [ "$(stat -f -c %T /)" = overlayfs ] || echo "the root is $(stat -f -c %T /)"
        [ -w /tmp ] && [ -d "$HOME" ] && [ -e /srv/held ] && [ -r /proc/self/stat ] || echo "parts are missing"'
    taskset --cpu-list "$all_processors" kiv-run "$1" sh -c "while [ ! -e ~/end ]; do $look; done" &
    while [ ! -e "/home/$1/end" ]; do
        taskset --cpu-list "$all_processors" kiv-run "$1" sh -c "$look" || echo "status $?"
    done &
}

# comes_and_goes NAME: meanwhile starts, enters and stops the account. That may be refused, but must
# not fail otherwise.
comes_and_goes() {
    local status
    while [ ! -e "/home/$1/end" ]; do
        kivctl start "$1" >/dev/null
        status=0
        kiv-run "$1" stat -f -c %T / >/tmp/other 2>/tmp/other.err || status=$?
        case $status in
            0) [ "$(cat /tmp/other)" = overlayfs ] || echo "the other root is $(cat /tmp/other)" ;;
            *) cat /tmp/other.err ;;
        esac
        kivctl stop "$1" >/dev/null
    done
}
export -f held looks comes_and_goes

@test "refreshes during lookups, start, exec and stop show no wrong view and leave no namespace" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
printf 'hide\n    /etc/secret\nbind\n    /srv/held\n' >"$configuration"
echo secret >/etc/secret
echo 0 >/usr/share/tool
held
refused held # a view still holds it
kivctl start alice >/dev/null
looks alice >/tmp/wrong 2>&1
comes_and_goes bob >/tmp/wrong.bob 2>&1 &
count=$(rounds 200 12)
for ((round = 1; round <= count; round++)); do
    echo "$round" >/usr/share/tool.new
    mv /usr/share/tool.new /usr/share/tool
    case $((round % 3)) in
        0) capture kiv-refresh -a ;;
        1) capture kiv-refresh alice ;;
        2) capture kiv-refresh --in-place alice && capture kiv-refresh alice ;;
    esac
    same "refresh $round" "0 " "$status $out$err"
    same "what is seen after refresh $round" "$round" "$(kiv-run alice cat /usr/share/tool)"
done
touch /home/alice/end /home/bob/end
wait
same "what was wrong" "" "$(cat /tmp/wrong)"
same "what was wrong of the other" "" "$(grep -v '^umount(kiv) failed: Device or resource busy$' /tmp/wrong.bob || true)"
printf 'hide\n    /etc/secret\n' >"$configuration"
capture kiv-refresh alice
same "the last refresh" "0 " "$status $out$err"
umount /srv/held
eventually held # no earlier view is left
recovers alice
recovers bob
EOF
}
