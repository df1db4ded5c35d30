#!/usr/bin/env bats
# The completions of zsh on a terminal, with the function where the install rule puts it.
load helpers

# in_zsh: runs the steps of tests/e2e/on_terminal from standard input in a shell that finds the
# function.
in_zsh() {
    cmake --install "$(dirname "$KIVCTL")/../dist/completion" --prefix /tmp/installed >/dev/null
    mkdir -p /tmp/zsh
    cat >/tmp/zsh/.zshrc <<'RC'
unsetopt prompt_sp prompt_cr
PS1='ready> '
fpath=(/tmp/installed/share/zsh/site-functions $fpath)
autoload -U compinit
compinit -u -D
RC
    {
        printf '%s\n' 'resize 24 200' 'expect ready> '
        cat
        printf '%s\n' 'expect ready> ' 'type exit 0\n'
    } | ZDOTDIR=/tmp/zsh HOME=/tmp "$project/tests/e2e/on_terminal" zsh -d -i
}
export project
export -f in_zsh

@test "commands, options, accounts and files of all programs complete where they belong" {
    in_host <<'EOF'
account alice 100.64.0.4/30
account bob 100.64.0.8/30
printf '%s\n' '# dave' '  # eve' '-n' 'a@b' 'c:d' >>"$registry"
mkdir /tmp/files
touch /tmp/files/one.conf
in_zsh <<'STEPS'
type kivctl sta\t
expect start +status
type r\tal\t\n
expect ^starting container: alice, network:100.64.0.4/30
expect ready> 
type kivctl --ver\t\n
expect version 3
expect ready> 
type kivctl -c /tmp/files/o\tstatu\tb\t\n
expect Account: bob
expect ready> 
type kivctl status \t
expect ^-a +alice +bob\n
type bo\t\n
expect Account: bob
expect ready> 
type kiv-run --st\tal\techo /tmp/files/o\t\n
expect ^/tmp/files/one.conf
expect ready> 
type kiv-list --j\tbo\t\n
expect "account": "bob"
expect ready> 
type kiv-refresh al\t--in\t -d\n
expect ready> 
type kiv-check -c /tmp/files/o\t--stri\t; echo "status $?"\n
expect ^status 0
STEPS
EOF
}

@test "a name of the registry is inserted as one word and never run as code" {
    in_host <<'EOF'
mkdir /tmp/empty
cd /tmp/empty
echo '$(touch${IFS}ran)`touch${IFS}ran2`' >"$registry"
in_zsh <<'STEPS'
type kiv-list \t\n
expect kiv-list: \$\(touch\${IFS}ran\)`touch\${IFS}ran2`: unknown user
STEPS
same "what was run" "" "$(ls -A)"
EOF
}
