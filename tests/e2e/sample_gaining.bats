#!/usr/bin/env bats
# Programs that gain a user, a group or a capability, on a host with the sample configuration: it
# hides each, or names it with the reason why it may stay. tests/sample/run wrote the list of the
# programs in Debian's packages.
load helpers

setup() {
    export project sample="$project/dist/kiv.conf"
}

# programs RELEASE: creates those of the list, in addition to the programs of the machine's root.
programs() {
    local gain path
    while read -r gain _ path _; do
        case $gain in
            '#'*) continue ;;
            cap_*) install -D -m 755 /usr/bin/true "$path" && setcap "$gain" "$path" ;;
            *) install -D -m "$gain" /usr/bin/true "$path" ;;
        esac
    done <"$project/tests/sample/gaining/$1"
}

sampled_account() {
    account alice 100.64.0.4/30
    cp "$sample" "$configuration"
    kivctl start alice
}
export -f programs sampled_account

@test "the sample hides or names every program of Debian 12 and 13 and of this machine that gains an ID or a capability" {
    in_host <<'SCRIPT'
source "$project/tests/e2e/gaining.bash"
programs bookworm
programs trixie
sampled_account
same "programs that gain something inside and are not named" "" \
    "$(gaining_inside alice /usr/bin /usr/lib /usr/libexec /usr/local /usr/sbin | grep -Fvx "$(named)" || true)"
SCRIPT
}

@test "a program that the sample does not know is found" {
    in_host <<'SCRIPT'
source "$project/tests/e2e/gaining.bash"
mkdir /usr/lib/found
cd /usr/lib/found
install -m 4755 /usr/bin/true set_user
install -m 2755 /usr/bin/true set_group
install -m 755 /usr/bin/true capable
setcap cap_net_raw+ep capable
sampled_account
same "what is found" "/usr/lib/found/capable
/usr/lib/found/set_group
/usr/lib/found/set_user" "$(gaining_inside alice /usr/lib/found)"
SCRIPT
}

@test "file capabilities give only those that the sample adds" {
    in_host <<'SCRIPT'
sampled_account
install "$(command -v cat)" /home/alice/all
setcap all+p /home/alice/all
same "capabilities gained" "CapPrm:	0000000000002000" \
    "$(kivctl exec alice <<<'./all /proc/self/status' | grep CapPrm)"
SCRIPT
}
