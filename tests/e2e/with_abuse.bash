# For the .bats files that abuse a host. Long rounds are shortened unless KIVCTL_ABUSE_FULL is set.
load with_residents

# with_abuse <<'EOF' … EOF: like with_residents, with the functions of tests/e2e/abuse.bash, too.
with_abuse() {
    local script
    script=$(cat)
    with_residents <<<"source '$BATS_TEST_DIRNAME/abuse.bash'; $script"
}
