#!/bin/bash
# Completes lines as an interactive bash would, with the real programs and a real server, and compares
# the words that are offered.
# Usage: completion.sh COMPLETIONS_FILE MONCL MONSRV
set -eu
PATH=${2%/*}:${3%/*}:$PATH
work=$(mktemp -d)
monsrv --simulate-board --port 0 >"$work/said" 2>&1 &
server=$!
trap 'kill $server; rm -rf "$work"' EXIT
timeout 20 bash -c "until grep -q listening '$work/said'; do sleep 0.05; done"
at=127.0.0.1:$(sed -n 's/.*listening at .*://p' "$work/said")
cd "$work"
touch night.db
# shellcheck source=/dev/null
. "$1"
set +eu # as in an interactive shell

failed=0
# expect LINE WORD...: all these words are offered for the last word of LINE; "no WORD" is not.
expect() {
    COMP_LINE=$1 COMP_POINT=${#1} COMPREPLY=()
    local program=${1%% *} word
    "$(complete -p "$program" | sed 's/.*-F \([^ ]*\).*/\1/')"
    for word in "${@:2}"; do
        case " ${COMPREPLY[*]} " in
        *" ${word#no }"[\ =]*) [[ $word == no\ * ]] || continue ;;
        *) [[ $word != no\ * ]] || continue ;;
        esac
        echo "'$1' gives '${COMPREPLY[*]}': ${word}" >&2
        failed=1
    done
}
expect 'moncl ' cpu disk monitor record names 'no --json'
expect 'moncl c' cpu cooling 'no disk'
expect 'moncl cpu,m' cpu,mem cpu,monitor 'no record'
expect 'moncl --c' --connect --color --count 'no --cpus' 'no --keep'
expect 'moncl record night.db --k' --keep
expect 'moncl record n' night.db
expect 'moncl record night.db to' top 'no record'
expect 'moncl export night.db cpu --format ' json openmetrics
expect 'moncl --format=j' json 'no csv'
expect "moncl nnu --connect $at " nnu0 nnu1
expect "moncl --connect $at ion c" carveout 'no system'
expect "moncl net --connect=$at l" lo
expect 'moncl --simulate-board nnu nnu' nnu0
expect "moncl top --connect $at --only " $$ 
expect "moncl cpu --connect $at -P " all ALL 0
expect "moncl top --connect $at 1" 'no 1'
expect 'moncl nnu --connect 127.0.0.1:1 ' 'no nnu0'
expect 'moncl --color a' auto always 'no never'
expect 'moncl --root ' night.db
expect 'monsrv --b' --bind 'no --connect'
exit $failed
