#!/bin/sh
# Each script shows its usage for --help, and ends with status 2, before it does anything, for a word that
# it does not know.
# Usage: scripts_refuse.sh SOURCE_DIR
set -eu
cd "$1"
for script in scripts/* bench/beside_sadc bench/scrape_beside_node_exporter bench/*.sh; do
    [ -x "$script" ] || continue # it is only sourced
    "$script" --help </dev/null | grep -iq usage || {
        echo "$script --help shows no usage"
        exit 1
    }
    status=0
    said=$("$script" --no-such-option </dev/null 2>&1) || status=$?
    [ "$status" -eq 2 ] || {
        echo "$script --no-such-option ends with status $status: $said"
        exit 1
    }
done
