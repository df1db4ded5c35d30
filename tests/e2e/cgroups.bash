# For the .bats files about figures: functions for the accounts' cgroups on the simulated host.

# A file system in memory replaces the kernel's accounting, whose controllers this kernel may lack.
stand_in_cgroups() {
    mount -t tmpfs cgroups /sys/fs/cgroup
}

slice() {
    echo "/sys/fs/cgroup/user.slice/user-$(id -u "$1").slice"
}

# figures NAME FILE=VALUE…: makes the account's container active, and gives its cgroup only these
# files.
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
