# Words of the tests that attack from inside a container; sourced on the simulated host after on_host.bash.

programs=$(dirname "$KIVCTL")/../tests/e2e/programs

# two_accounts: alice, who attacks from her home, where the programs are, and bob, both running, on a host
# with the sample configuration.
two_accounts() {
    cp "$project/dist/kiv.conf" "$configuration"
    account alice 100.64.0.4/30
    account bob 100.64.0.8/30
    find "$programs" -maxdepth 1 -type f -perm /111 -exec cp -t /home/alice {} +
    kivctl start -a >/dev/null 2>&1
}

# inside NAME COMMAND [ARGUMENT…]: a shell command in the account's shell, as exec gives it, with this
# standard input. The arguments are its $1 and so on.
inside() {
    kivctl exec "$1" < <(
        printf 'exec bash -c'
        printf ' %q' "$2" bash "${@:3}"
        printf '\n'
        cat
    )
}

# answered ANSWER LIST: the calls of the list as they come out when each gets this answer.
answered() { sed "s/\$/ $1/" <<<"$2"; }
