# For the .bats files that abuse a host. Heavy rounds are cut short unless KIVCTL_ABUSE_FULL is set to something.
load with_residents

# with_abuse <<'EOF' … EOF: as with_residents, with the words of tests/e2e/abuse.bash at hand too.
with_abuse() {
    local script
    script=$(cat)
    with_residents <<<"source '$BATS_TEST_DIRNAME/abuse.bash'; $script"
}
