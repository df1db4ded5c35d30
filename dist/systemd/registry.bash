#!/bin/bash
# The registry of accounts, for the helpers of the units beside it, which source this file.
registry=/etc/tarnwell/kiv.users

# accounts: prints each name of the registry once, in its order.
accounts() {
    LC_ALL=C awk '{
        gsub(/^[ \t\f\r\v]+|[ \t\f\r\v]+$/, "")
        split($0, words, /[ \t]+/)
        if ($0 != "" && $0 !~ /^#/ && !seen[words[1]]++) print words[1]
    }' "$registry"
}
