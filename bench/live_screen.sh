#!/bin/sh
# Measures the live page beside htop and top, all at once in terminals of 200x50, at one report a
# second: CPU time of the processes and bytes written to the terminal. Needs the release build.
# Usage: bench/live_screen.sh [SECONDS]     60 unless given
set -eu
. "$(dirname "$0")/../scripts/usage"
seconds=${1:-60}
need_number "$seconds"
[ $# -le 1 ] || refuse "$2"
cd "$(dirname "$0")/.."
scripts/install-packages tmux procps htop
export LC_ALL=C.UTF-8
folder=$(mktemp -d)
terminal() { tmux -u -L moncl_light "$@"; }
# In hundredths of a second, of a process with all its threads.
cpu_time() { awk '{ print $14 + $15 }' "/proc/$1/stat"; }
mkfifo "$folder/said"
build/release/server/monsrv --port 0 >"$folder/said" &
server=$!
trap 'terminal kill-server 2>/dev/null || true; kill "$server"; rm -rf "$folder"' EXIT
read -r said <"$folder/said"

start() { # NAME COMMAND
    terminal -f /dev/null new-session -d -s "$1" -x 200 -y 50 "exec $2"
    terminal pipe-pane -t "$1" "exec cat >$folder/$1"
}
start inside "build/release/tools/moncl 1"
start connected "build/release/tools/moncl 1 --connect ${said##* at }"
start htop "htop -d 10"
start top "top -d 1"
sleep 3
names="inside connected htop top"
for name in $names; do
    pid=$(terminal display -p -t "$name" '#{pane_pid}')
    echo "$name $pid $(cpu_time "$pid") $(wc -c <"$folder/$name")" >>"$folder/before"
done
server_before=$(cpu_time "$server")
sleep "$seconds"
echo "$seconds s, $(find /proc -maxdepth 1 -name '[0-9]*' | wc -l) processes:"
while read -r name pid time bytes; do
    echo "$name: $((($(cpu_time "$pid") - time) * 10)) ms, $(($(wc -c <"$folder/$name") - bytes)) bytes"
done <"$folder/before"
echo "the server of connected: $((($(cpu_time "$server") - server_before) * 10)) ms"
