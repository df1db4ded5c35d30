# For the .bats files that attack from inside a container.
export project

# on_two_accounts <<'EOF' … EOF: like in_host, with the functions of tests/e2e/attacks.bash, on a
# host where the attacker's container runs.
on_two_accounts() {
    local script
    script=$(cat)
    in_host <<<"source '$project/tests/e2e/attacks.bash'
two_accounts
$script"
}
