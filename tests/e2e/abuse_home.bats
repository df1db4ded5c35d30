#!/usr/bin/env bats
# Attacks in an account's own home that try to make root reach other files.
load helpers
load with_abuse

@test "a tmp that is a link or not a directory is never mounted, whatever it leads to" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
account bob
touch /home/bob/file
rmdir /home/alice/tmp
for kind in / /home/bob gone fifo socket; do
    case $kind in
        fifo) mkfifo /home/alice/tmp; reason="Not a directory" ;;
        socket) perl -MIO::Socket::UNIX -e 'IO::Socket::UNIX->new(Local => shift, Listen => 1) or die' /home/alice/tmp
            reason="Not a directory" ;;
        *) ln -s "$kind" /home/alice/tmp; reason="Too many levels of symbolic links" ;;
    esac
    chown -h alice /home/alice/tmp
    capture timeout 20 kivctl start alice
    same "status with $kind" 0 "$status"
    same "stderr with $kind" "mount(/home/alice/tmp) to /tmp failed: $reason" "$err"
    same "what root sees inside" "" "$(enter_as_root alice ls -A /tmp)"
    refused enter_as_root alice mountpoint -q /tmp
    kivctl stop alice
    pair_is_gone alice
    rm /home/alice/tmp
done
install -d -o alice /home/alice/tmp
recovers alice
EOF
}

@test "without openat2 a link at tmp is refused, too" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
rmdir /home/alice/tmp
ln -s / /home/alice/tmp
injected openat2:error=ENOSYS kivctl start alice
has_run 0
same stderr "mount(/home/alice/tmp) to /tmp failed: Too many levels of symbolic links" "$err"
refused enter_as_root alice mountpoint -q /tmp
rm /home/alice/tmp
mkfifo /home/alice/tmp
kivctl stop alice
pair_is_gone alice
injected openat2:error=ENOSYS kivctl start alice
same stderr "mount(/home/alice/tmp) to /tmp failed: Not a directory" "$err"
EOF
}

@test "a tmp that is exchanged with a link all the time is mounted or refused, and never followed" {
    with_abuse <<'EOF'
account alice 100.64.0.4/30
mkdir -m 777 /srv/secret
touch /srv/secret/foreign /home/alice/tmp/own
ln -s /srv/secret /home/alice/other
chown -h alice /home/alice/other
exchanging alice /home/alice/tmp /home/alice/other
mounted=0 refused=0
for ((round = $(rounds 200 15); round > 0; round--)); do
    capture timeout 20 kivctl start alice
    same "status of round $round" 0 "$status"
    seen=$(enter_as_root alice ls -A /tmp)
    if [ -z "$err" ]; then
        same "what is mounted" own "$seen"
        mounted=$((mounted + 1))
    else
        same stderr "mount(/home/alice/tmp) to /tmp failed: Too many levels of symbolic links" "$err"
        same "what is not mounted" "" "$seen"
        refused=$((refused + 1))
    fi
    kivctl stop alice
    pair_is_gone alice
done
echo "mounted $mounted times, refused $refused times"
kill "$exchanger"
until_ended "$exchanger"
if [ -L /home/alice/tmp ]; then
    rm /home/alice/tmp
    mv /home/alice/other /home/alice/tmp
fi
recovers alice
EOF
}

# a home whose parent the account owns, as beside the account's other sites
homes_of_her_own() {
    with_abuse <<<'
account alice 100.64.0.4/30
install -d -o alice /srv/alices
mv /home/alice /srv/alices/home
install -d /srv/secret /srv/secret/tmp
touch /srv/alices/home/own /srv/alices/home/tmp/own /srv/secret/foreign /srv/secret/tmp/foreign
ln -s /srv/secret /srv/alices/other
chown -h alice /srv/alices/other
sed -i s#:/home/alice:#:/srv/alices/home:# /etc/passwd
printf "%s\n" hide "    /srv/secret" >"$configuration" # so that it does not appear through the root
no_foreign() {
    same "what is foreign" "" "$(enter_as_root alice find -L /srv/alices /tmp -name foreign 2>/dev/null || true)"
}
'"$(cat)"
}

@test "a home that becomes a link between two look-ups is the directory that was opened first" {
    homes_of_her_own <<'EOF'
# at this call it has been opened and is created in the layer
strace -f -qq -o /tmp/trace -e trace=openat2 -e inject=openat2:delay_enter=700000 kivctl start alice >/tmp/out 2>/tmp/err & start=$!
until grep -qsF '"srv/alices/home"' /tmp/trace; do sleep 0.01; done
mv /srv/alices/home /srv/alices/before
mv /srv/alices/other /srv/alices/home
runs "$start"
wait "$start"
same stderr "" "$(cat /tmp/err)"
no_foreign
same "what is mounted" "own tmp" "$(enter_as_root alice bash -c 'cd /srv/alices/home; echo [a-z]*')"
same "what is mounted at /tmp" own "$(enter_as_root alice ls -A /tmp)"
EOF
}

@test "a home that is exchanged with a link all the time never shows other files" {
    homes_of_her_own <<'EOF'
exchanging alice /srv/alices/home /srv/alices/other
for ((round = $(rounds 200 15); round > 0; round--)); do
    capture timeout 20 kivctl start alice
    same "status of round $round" 0 "$status"
    no_foreign
    echo "round $round: $(wc -l <<<"$err") lines, $(enter_as_root alice ls -A /tmp | xargs)"
    kivctl stop alice
    pair_is_gone alice
done
kill "$exchanger"
until_ended "$exchanger"
if [ -L /srv/alices/home ]; then
    rm /srv/alices/home
    mv /srv/alices/other /srv/alices/home
fi
recovers alice
EOF
}
