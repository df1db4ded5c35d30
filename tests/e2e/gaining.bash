# Functions about programs that gain a user, a group or a capability when they are executed; sourced
# on the simulated host after on_host.bash. `sample` is the sample configuration.

# capabilities_left: prints those of the sample's "cap_add" in the form of getcap(8). No program
# inside gains others.
capabilities_left() { awk '/^[^ #]/ { inside = $1 == "cap_add" } inside && /^ +[^ #]/ { print tolower($1) }' "${sample:?}"; }

# gaining DIRECTORY…: prints the paths of all such programs. `left` has those capabilities.
gaining() {
    find "$@" -xdev -type f \( -perm /6000 -printf 'bits %p\n' -o -perm /111 -exec getcap {} + \) |
        sed -nE "s/^bits //p; s/^(\/.*) [^ ]*($left)[^ ]*\$/\1/p"
}

# gaining_inside NAME DIRECTORY…: prints those in the account's container, even if permissions keep
# the account from them.
gaining_inside() { (
    left=$(capabilities_left | paste -sd'|')
    export left
    export -f gaining
    enter_as_root "$1" bash -c 'gaining "$@"' bash "${@:2}" | LC_ALL=C sort -u
); }

# named: prints the programs that the sample lists with a reason instead of hiding them.
named() { sed -nE 's|^ +#   (/[^ ]+) +[^ ].*|\1|p' "${sample:?}"; }
