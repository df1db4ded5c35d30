#!/usr/bin/env bats
# What a newcomer types first: --help of the scripts and drivers of the project.

@test "--help of every script begins with its usage and runs nothing" {
    cd "$BATS_TEST_DIRNAME/../.."
    local script said
    # scripts/pictures needs a library that only scripts/setup pictures installs
    for script in scripts/{check-*,demo,extract-messages,format,fuzz,lint,setup,test} bench/run tests/*/run \
        tests/faults/{calls,killed,memcheck,race,sessions,short} tests/package/build; do
        echo "$script"
        said=$(timeout 60 "$script" --help)
        [[ ${said,,} == "usage: $script"* ]]
        [[ $said == *$'\n\n'[A-Z]*.* ]]
    done
}
