# For the drivers that start Debian in an emulated machine with kivctl's packages: creates its disk
# and runs it. `work` is a temporary directory, `root` the directory of the disk's files while it is
# built, `architecture` amd64 or arm64.
architecture=amd64

step() { printf '== %s\n' "$*"; }

die() {
    echo "$driver: $*" >&2
    exit 1
}

in_root() {
    local -A enter=([amd64]=tests/host/enter-root [arm64]=tests/arm64/enter)
    "${enter[$architecture]}" "$root" "$@"
}

# quietly WHAT COMMAND…: prints the command's output only when it fails.
quietly() { "${@:2}" >"$work/log" 2>&1 || die "$1: $(tail -n 3 "$work/log")"; }

# begin_machines DRIVER: prepares for the driver of that name; builds the packages. Those for arm64
# are built per suite.
begin_machines() {
    driver=$1
    PATH=$PATH:/usr/sbin:/sbin
    ((EUID == 0)) || die "needs root, to make disks"
    scripts/setup "$driver"
    [ "$architecture" = amd64 ] || scripts/setup "$architecture"
    work=$(mktemp -d)
    root=$work/root
    trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT
    mkdir "$work/debs"
    [ "$architecture" = amd64 ] || return 0
    step "packages"
    tests/package/build "$work/debs"
}

# cross_build SUITE: builds the packages and the tests for arm64.
cross_build() {
    rm -rf "$work/debs"
    mkdir "$work/debs"
    if [ -n "${KIV_ARM64_PACKAGES:-}" ]; then
        cp "$KIV_ARM64_PACKAGES/$1"/* "$work/debs"
        return
    fi
    step "$1: packages and tests for arm64"
    tests/arm64/cross "$1" "$work/cross" "$work/debs"
    rm -rf "$work/cross"
}

# make_root SUITE PACKAGE…: creates a root like a server installation, with these packages. It
# changes nothing on this machine; installed services start with the emulated one.
make_root() {
    local suite=$1 archive=${KIV_VM_CACHE:+$KIV_VM_CACHE/$driver-$1-$architecture.tar}
    local packages=(dbus dbus-user-session initramfs-tools iproute2 iptables kmod libpam-systemd
        "linux-image-$architecture" nftables procps systemd-sysv udev)
    rm -rf "$root"
    if [ -n "$archive" ] && [ -e "$archive" ]; then
        mkdir "$root"
        tar --extract --numeric-owner --xattrs --acls --file "$archive" --directory "$root"
        return
    fi
    step "$suite: a fresh root"
    if [ "$architecture" = arm64 ]; then
        quietly "cannot make a root" tests/arm64/root "$suite" "$root" "${packages[@]}" "${@:2}"
    else
        quietly debootstrap debootstrap --variant=minbase --include="$(IFS=, && echo "${packages[*]}")" "$suite" "$root"
    fi
    if (($# > 1)) && [ "$architecture" = amd64 ]; then
        cp /etc/resolv.conf "$root/etc/resolv.conf"
        quietly "cannot install ${*:2}" in_root apt-get -q -y --no-install-recommends install "${@:2}"
        rm "$root/etc/resolv.conf" # the machine has no name server
        in_root apt-get clean
    fi
    if [ -n "$archive" ]; then
        tar --create --numeric-owner --xattrs --acls --file "$archive" --directory "$root" .
    fi
}

# configure_machine NAME PACKAGE…: sets up its network and installs kivctl's packages like on any
# host. The network card has 10.0.2.15; the gateway 10.0.2.2 forwards nothing.
configure_machine() {
    echo '/dev/vda / ext4 defaults 0 1' >"$root/etc/fstab"
    echo "$1" >"$root/etc/hostname"
    echo "127.0.1.1 $1" >>"$root/etc/hosts"
    cat >"$root/etc/systemd/network/uplink.network" <<'EOF'
[Match]
Type=ether
Kind=!veth

[Network]
Address=10.0.2.15/24
Gateway=10.0.2.2
EOF
    echo net.ipv4.ip_forward=1 >"$root/etc/sysctl.d/kivctl.conf"
    mkdir -p "$root/packages" "$root/var/log/journal"
    local package
    for package in "${@:2}"; do
        cp "$work/debs/$package"_*.deb "$root/packages"
    done
    quietly "cannot install the packages" in_root bash -c 'apt-get -q -y install /packages/*.deb'
    quietly "cannot configure the network" in_root systemctl enable systemd-networkd
}

# add_accounts NAME…: adds users with a home and a tmp directory.
add_accounts() {
    # shellcheck disable=SC2016 # for the shell inside
    quietly "cannot make the accounts" in_root bash -euc '
        for name; do
            useradd --create-home --shell /bin/bash "$name"
            install -d -o "$name" -g "$name" "/home/$name/tmp"
        done' add_accounts "$@"
}

# add_guest DIRECTORY: installs that directory's test, which the machine runs after each boot, and
# its functions.
add_guest() {
    install -m 0755 "$1/guest" "$root/usr/local/sbin/kivctl-guest"
    install -m 0644 -D tests/vm/guest.bash "$root/usr/local/lib/kivctl-guest/guest.bash"
    sed "s/ttyS1/${report_port[$architecture]}/" tests/vm/guest.service \
        >"$root/etc/systemd/system/kivctl-guest.service"
    quietly "cannot enable the test" in_root systemctl enable kivctl-guest
}

# make_disk SIZE: makes a disk of the root, which it removes.
make_disk() {
    cp "$root"/boot/vmlinuz-* "$work/kernel"
    cp "$root"/boot/initrd.img-* "$work/initrd"
    rm -f "$work/disk"
    mke2fs -q -t ext4 -d "$root" "$work/disk" "$1"
    rm -rf "$root"
}

# The serial port of the test: on amd64 the second one, on arm64 that of a card.
declare -A report_port=([amd64]=ttyS1 [arm64]=ttyS0)

# emulate_machine: runs it in the background. Its processor has no pointer authentication, whose
# emulation takes most of the time, and runs 32-bit programs. Its timeouts are long, because it is
# slow.
emulate_machine() {
    local common=(-m 1536 -nographic -monitor none -kernel "$work/kernel" -initrd "$work/initrd"
        -drive "file=$work/disk,format=raw,if=virtio,cache=unsafe" -nic "user,model=virtio-net-pci,restrict=on"
        -serial "file:$work/console")
    case $architecture in
        amd64)
            timeout 3600 qemu-system-x86_64 -accel tcg,thread=multi -cpu max -smp 2 "${common[@]}" \
                -append "root=/dev/vda rw console=ttyS0 no_timer_check" -serial "file:$work/report" \
                </dev/null 2>"$work/emulator" &
            ;;
        arm64)
            timeout 14400 qemu-system-aarch64 -machine virt -accel tcg -cpu cortex-a72 -smp 1 "${common[@]}" \
                -append "root=/dev/vda rw console=ttyAMA0 systemd.default_timeout_start_sec=1200 systemd.default_device_timeout_sec=1200" \
                -chardev "file,id=report,path=$work/report" -device pci-serial,chardev=report \
                </dev/null 2>"$work/emulator" &
            ;;
    esac
}

# run_machine: runs it until it powers itself off. The test writes to the second serial port and
# ends with "passed". On a busy machine the emulated timer can be late, which would make the kernel
# give up.
run_machine() {
    rm -f "$work/report"
    emulate_machine
    local machine=$! shown
    until [ -e "$work/report" ]; do
        [ -d "/proc/$machine" ] || die "the emulator ended: $(tail -n 3 "$work/emulator")"
        sleep 0.1
    done
    tail --pid "$machine" --sleep-interval 0.5 --lines +1 --follow "$work/report" | sed -u 's/\r$//' &
    shown=$!
    wait "$machine" || die "the machine has not powered itself off; its console ends with: $(tail -n 15 "$work/console")"
    wait "$shown"
    grep --quiet '^passed' "$work/report"
}
