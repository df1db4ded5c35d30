# For the .bats files about figures: words that hosts have for the accounts' cgroups.

# A file system in memory stands for the kernel's accounting, whose controllers this kernel may not have.
stand_in_cgroups() {
    mount -t tmpfs cgroups /sys/fs/cgroup
}

slice() {
    echo "/sys/fs/cgroup/user.slice/user-$(id -u "$1").slice"
}

# figures NAME FILE=VALUE…: the account's container is active and its cgroup has these files alone.
figures() {
    local figure directory
    directory=$(slice "$1")
    mkdir -p /run/kiv "$directory"
    touch "/run/kiv/$1@mnt"
    rm -f "$directory"/*.*
    for figure in "${@:2}"; do
        printf '%s\n' "${figure#*=}" >"$directory/${figure%%=*}"
    done
}
export -f stand_in_cgroups slice figures
