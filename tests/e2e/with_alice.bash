# For the .bats files about commands in one running container, on a terminal and without.
export PATH=$PATH:$BATS_TEST_DIRNAME # for on_terminal

# with_alice <<'EOF' … EOF: like in_host, with alice's container running.
with_alice() {
    local script
    script=$(cat)
    in_host <<<"account alice 100.64.0.4/30
kivctl start alice >/dev/null
$script"
}
