# For the .bats files: `in_host` runs a script on a fresh simulated host.
bats_require_minimum_version 1.5.0

project=$(cd "$BATS_TEST_DIRNAME/../.." && pwd)
export KIVCTL=${KIVCTL:-$project/build/bin/kivctl}

# in_host <<'EOF' … EOF Runs the script from standard input as root on a fresh simulated host, with
# the functions of tests/e2e/on_host.bash. The first command that fails ends the script, fails the
# test and is named. Exported variables of the test reach the script.
in_host() {
    local script
    script=$(cat)
    "$project/tests/host/simulated-host" -- bash -c \
        "source '$project/tests/e2e/on_host.bash'; $script" </dev/null
}
