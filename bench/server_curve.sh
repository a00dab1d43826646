#!/bin/sh
# What the server's answers take beside more clients, more processes and more CPUs, and how many it
# gives in a second beside a bare ROUTER socket that echoes messages of the same sizes.
# Usage: bench/server_curve.sh [SECONDS]     of each row, 5 at first; needs the bench build
set -eu
. "$(dirname "$0")/../scripts/usage"
seconds=${1:-5}
need_number "$seconds"
[ $# -le 1 ] || refuse "$2"
cd "$(dirname "$0")/.."
build=build/bench
folder=$(mktemp -d)
chmod 755 "$folder"
server=
sleepers=
finish() {
    for each in $server $sleepers; do kill "$each" 2>/dev/null || true; done
    rm -rf "$folder"
}
trap finish EXIT
trap 'exit 1' INT TERM

port=15757
start() { # COMMAND...: at a port of its own
    port=$((port + 1))
    "$@" "$port" >"$folder/said" 2>&1 &
    server=$!
    sleep 1
}
start_server() { start "$build/server/monsrv" --max-clients 1100 "$@" --port; }
stop() {
    kill "$server"
    wait "$server" 2>/dev/null || true
    server=
}
# In hundredths of a second, of a process with all its threads.
cpu_time() { awk '{ print $14 + $15 }' "/proc/$1/stat"; }
measure() { "$build/bench/moncl_server_bench" "$port" "$@" >"$folder/seen"; }
# p50, p99 and longest of the line NAME
waits() { awk -v name="$1" '$1 == name { print $7 " | " $9 " | " $11 }' "$folder/seen"; }
answers() { awk '$1 == "others" { print $3 }' "$folder/seen"; }
start_sleepers() { # COUNT
    mkfifo "$folder/hold"
    "$build/bench/moncl_sleeping_processes" "$1" <"$folder/hold" >"$folder/started" &
    sleepers=$!
    exec 9>"$folder/hold"
    for _ in $(seq 100); do
        [ ! -s "$folder/started" ] || break
        sleep 0.2
    done
}
stop_sleepers() {
    exec 9>&-
    wait "$sleepers"
    sleepers=
    rm "$folder/hold"
    sleep 2 # until the kernel has them all cleared away
}
load() { cut -d' ' -f1 /proc/loadavg; }

echo "Milliseconds from request to answer; $(nproc) CPUs; load at each row's end."
echo
echo "| an honest CPU query beside | p50 | p99 | longest | load |"
echo "| --- | --- | --- | --- | --- |"
for case in "cpu 0" "cpu 1" "cpu 10" "cpu 100" "cpu 1000" "top 1" "top 10" "top 100" "top 1000"; do
    start_server
    # shellcheck disable=SC2086 # two words
    measure $case "$seconds"
    echo "| $case | $(waits honest) | $(load) |"
    stop
done

echo
echo "| busiest processes, of | clients | p50 | p99 | longest | honest CPU query: p50 | p99 | longest | server's CPU, ms/s | load |"
echo "| --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |"
for wanted in 100 1000 10000; do
    have=$(find /proc -maxdepth 1 -name '[0-9]*' | wc -l)
    more=$((wanted > have ? wanted - have : 0))
    start_sleepers "$more"
    for case in "1 1000" "20 1000" "1 0" "20 0" "100 0"; do
        start_server --all-processes
        before=$(cpu_time "$server")
        # shellcheck disable=SC2086 # two words
        measure top ${case% *} "$seconds" ${case#* }
        used=$((10 * ($(cpu_time "$server") - before) / (seconds + 1 + 3 * ${case#* } / 1000)))
        pace=$([ "${case#* }" = 0 ] && echo "as fast as they can" || echo "a second between")
        echo "| $((have + more)) processes | ${case% *}, $pace | $(waits others) | $(waits honest) | $used | $(load) |"
        stop
    done
    stop_sleepers
done

echo
echo "| CPU query of a tree of files with | p50 | p99 | longest | load |"
echo "| --- | --- | --- | --- | --- |"
for cpus in 2 64 1024; do
    mkdir -p "$folder/root/proc"
    seq "$cpus" | awk 'BEGIN { print "cpu  4705 356 584 3699176 23060 0 277 0 0 0" }
        { print "cpu" NR - 1 " 1393280 32966 572056 13343292 6130 0 17875 0 0 0" }' \
        >"$folder/root/proc/stat"
    start_server --root "$folder/root"
    measure cpu 0 "$seconds"
    echo "| $cpus CPUs | $(waits honest) | $(load) |"
    stop
done

echo
echo "| CPU queries, clients | monsrv, answers/s | bare ROUTER echo | ratio | load |"
echo "| --- | --- | --- | --- | --- |"
for clients in 10 100; do
    for _ in 1 2 3 4 5; do
        start_server
        measure cpu "$clients" "$seconds"
        ours=$(answers)
        stop
        start "$build/bench/moncl_echo_server"
        measure cpu "$clients" "$seconds"
        echo "$((ours / seconds)) $(($(answers) / seconds)) $(load)"
        stop
    done | awk -v clients="$clients" '{ print $0, $1 / $2 }' | sort -n -k4 |
        awk -v clients="$clients" 'NR == 3 { printf "| %d | %d | %d | %.2f (median of 5) | %s |\n", clients, $1, $2, $4, $3 }'
done
