# For the .bats files about processes in containers.

# with_residents <<'EOF' … EOF: as in_host, with the words of tests/e2e/residents.bash at hand too.
with_residents() {
    local script
    script=$(cat)
    in_host <<<"source '$BATS_TEST_DIRNAME/residents.bash'; $script"
}
