# For the tests that an emulated machine runs after each boot: functions, and the number of the boot
# in `boot`. Failed checks are counted, and the others still run.
# shellcheck disable=SC1091
state=/var/lib/kivctl-guest
mkdir -p "$state"
boot=$(($(cat "$state/boot" 2>/dev/null || echo 0) + 1))
echo "$boot" >"$state/boot"

# holds WHAT COMMAND…
holds() {
    if "${@:2}"; then
        echo "  ok      $1"
    else
        echo "  FAILED  $1"
        echo "$boot: $1" >>"$state/failed"
        return 1
    fi
}

# shows COMMAND…: prints the command and runs it.
shows() {
    echo "# $*"
    "$@" 2>&1 | cat # not to a terminal
}

says() { [[ $(cat) == *"$1"* ]]; }

is() { [ "$1" = "$2" ]; }

# ends_with STATUS COMMAND…
ends_with() {
    local status=0
    "${@:2}" >/dev/null 2>&1 || status=$?
    is "$1" "$status"
}

between() { (($1 <= $2 && $2 <= $3)); }

# eventually SECONDS COMMAND…
eventually() {
    local end=$((SECONDS + $1))
    until "${@:2}"; do
        ((SECONDS < end)) || return 1
        sleep 0.2
    done
}

# tell_result: prints the result of all boots, which the driver searches for.
tell_result() {
    if [ -e "$state/failed" ]; then
        echo "failed: $(wc -l <"$state/failed")"
    else
        echo "passed"
    fi
}

echo "boot $boot: $(. /etc/os-release && echo "$PRETTY_NAME"), Linux $(uname -r), $(systemctl --version | head -1)"
