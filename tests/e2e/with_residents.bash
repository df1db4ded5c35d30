# For the .bats files about processes in containers.

# with_residents <<'EOF' … EOF: like in_host, with the functions of tests/e2e/residents.bash, too.
with_residents() {
    local script
    script=$(cat)
    in_host <<<"source '$BATS_TEST_DIRNAME/residents.bash'; $script"
}
