# For scripts that run the services of dist/services on a simulated host, which has no service manager: the words read
# the units themselves.
# shellcheck source=tests/e2e/namespaces.bash
source "$project/tests/e2e/namespaces.bash"

# unit_lines UNIT KEY: prints the values of a setting, one per line, those of drop-ins last.
unit_lines() {
    local files
    mapfile -t files < <(compgen -G "$examples/$1*/*" || true)
    sed -n "s/^$2=//p" "$examples/$1" "${files[@]}"
}

# unit_command UNIT INSTANCE COMMAND: executes a command line of the unit like systemd. Quotes, and
# the words of a variable without braces, are treated like in the shell.
unit_command() {
    local assignments
    eval "assignments=($(unit_lines "$1" Environment | tr '\n' ' '))"
    export "${assignments[@]}"
    eval "exec ${3//%i/$2}"
}

# run_command_of UNIT INSTANCE COMMAND: the same in a separate process.
run_command_of() { (unit_command "$@") </dev/null; }

# drop_in UNIT SETTING: adds the setting like `systemctl edit`.
drop_in() { install -D -m 644 /dev/stdin "$examples/$1.d/override.conf" <<<"[Service]"$'\n'"$2"; }

# start_unit UNIT INSTANCE: runs ExecStartPre and ExecStart. The process ID of the latter is in
# `main`, its output goes to /tmp/INSTANCE.log.
start_unit() {
    local line
    while read -r line; do
        run_command_of "$1" "$2" "$line"
    done < <(unit_lines "$1" ExecStartPre)
    unit_command "$1" "$2" "$(unit_lines "$1" ExecStart)" </dev/null >>"/tmp/$2.log" 2>&1 &
    # shellcheck disable=SC2034 # for the caller
    main=$!
}

# reload_unit UNIT MAIN
reload_unit() { (MAINPID=$2 unit_command "$1" none "$(unit_lines "$1" ExecReload)"); }

# readme_commands HEADING: prints the commands in the first block below that heading of README.md,
# without those for the package and service managers and the change of directory.
readme_commands() {
    sed -n "/^##* $1\$/,/^##* /{/^\`\`\`sh\$/,/^\`\`\`\$/p}" "$examples/README.md" | grep -vE '^(```|apt |cd |postfix |systemctl )'
}

# host_of_services: applies README.md's steps for a host, and the sample configuration.
host_of_services() {
    examples=/opt/services
    cp -r "$project/dist/services" "$examples"
    cp "$project/dist/kiv.conf" "$configuration"
    ln -s "$(command -v kiv-run)" /usr/sbin/kiv-run
    rm /etc/nginx/sites-enabled/*
    cd "$examples"
    eval "$(readme_commands "Once per host")"
}

# site_of NAME: applies README.md's steps for an account, and starts its container.
site_of() {
    eval "$(readme_commands "A PHP site" | sed "s/^account=alice\$/account=$1/")"
    start_unit kiv-php@.service "$1"
    eventually test -S "/home/$1/run/php.sock"
}

# page HOST PATH [OPTION…]: prints the web server's answer.
page() { curl --silent --max-time 30 --header "Host: $1" "${@:3}" "http://127.0.0.1$2"; }

# http_status HOST PATH
http_status() { page "$1" "$2" --output /dev/null --write-out '%{http_code}'; }

# all_inside NAME: the account must have processes, all of them in its container.
all_inside() {
    pgrep --uid "$1" >/dev/null
    same "processes outside of the container" "" "$(processes_outside "$1")"
}

# two_sites: sets up alice and bob, each with a pool and the same page, behind nginx.
two_sites() {
    account alice 100.64.0.4/30
    account bob 100.64.0.8/30
    host_of_services
    kivctl start -a >/dev/null 2>&1
    local name
    for name in alice bob; do
        chmod 700 "/home/$name" # useradd's mode differs between releases
        site_of "$name"
        install -o "$name" -g "$name" -m 644 /dev/stdin "/home/$name/site/index.php" <"$project/tests/e2e/programs/page.php"
    done
    nginx
}
