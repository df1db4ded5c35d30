# For scripts that check where an account's processes are, on the simulated host and on a real one.

# namespaces_pinned NAME and namespaces_of PID: print identities, which are equal for a process in
# the account's container.
namespaces_pinned() {
    local kind
    for kind in net ipc mnt; do
        echo "$kind:[$(stat -Lc %i "/run/kiv/$1@$kind")]"
    done
}

namespaces_of() {
    local kind
    for kind in net ipc mnt; do
        readlink "/proc/$1/ns/$kind"
    done
}

# processes_outside NAME: prints the account's processes that are not in its container.
processes_outside() {
    local process pinned
    pinned=$(namespaces_pinned "$1")
    for process in $(pgrep --uid "$1"); do
        [ "$(namespaces_of "$process" 2>/dev/null)" = "$pinned" ] || [ ! -e "/proc/$process/ns/net" ] ||
            echo "$process $(tr '\0' ' ' <"/proc/$process/cmdline")"
    done
}
