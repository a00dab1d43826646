#!/bin/sh
# Runs every program of examples/ against a real monsrv that simulates a board, and compares what is
# certain of its output with this machine's own files.
# Usage: examples.sh SOURCE_DIR PROGRAM_DIR MONSRV [EMULATOR]
set -eu
source=$1
programs=$2
monsrv=$3
emulator=${4:-}
work=$(mktemp -d)
trap 'kill $(cat "$work"/*.pid) 2>/dev/null; rm -rf "$work"' EXIT

# serve NAME PORT: starts a server, and waits until it says at which port it listens.
serve() {
    $emulator "$monsrv" --simulate-board --port "$2" >"$work/$1.said" 2>&1 &
    echo $! >"$work/$1.pid"
    timeout 20 sh -c "until grep -q listening '$work/$1.said'; do sleep 0.05; done"
    port=$(sed -n 's/.*listening at .*://p' "$work/$1.said")
}
# until_line NAME COUNT TEXT: waits until the output of NAME has COUNT lines with TEXT.
until_line() {
    timeout 20 sh -c "until [ \$(grep -c '$3' '$work/$1.out') -ge $2 ]; do sleep 0.05; done"
}
kernel() {
    awk -v key="$1:" '$1 == key { print $2 }' /proc/meminfo
}

serve board 0
arguments="127.0.0.1 $port $$"
for file in "$source"/examples/*.cpp; do
    name=$(basename "$file" .cpp)
    case $name in
    recover) continue ;;
    watch_boards) arguments_of="127.0.0.1 $port 127.0.0.1 1" ;;
    *) arguments_of=$arguments ;;
    esac
    # shellcheck disable=SC2086 # one word an argument
    { $emulator "$programs/$name" $arguments_of >"$work/$name.out" 2>"$work/$name.err" ||
        echo "exit status $?" >>"$work/$name.out"; } &
    examples="${examples:-} $name:$!"
done

serve other 0
$emulator "$programs/recover" 127.0.0.1 "$port" >"$work/recover.out" 2>"$work/recover.err" &
examples="$examples recover:$!"
until_line recover 1 %
kill -9 "$(cat "$work/other.pid")"
until_line recover 1 'no answer'
serve other "$port"
until_line recover 2 connected

failed=0
for each in $examples; do
    name=${each%:*}
    wait "${each#*:}" || true
    case $name in
    accelerator) expected='nnu0 [0-9.]+ %;nnu1 [0-9.]+ %' ;;
    ask_one_figure) expected="$(kernel MemTotal) kB, [0-9]+ % in use" ;;
    counters) expected='(the server refuses: .+|no hardware counters, .+|[0-9.]+ instructions a cycle)' ;;
    disks) expected="/: $(df -B1 --output=size / | tail -n 1 | tr -d ' ') bytes, [0-9]+ available" ;;
    frame_rates) expected='pipe 0: [0-9]+ frames/s in, [0-9]+ out.*;PIPE/IP .*' ;;
    interrupts) expected='busiest on the first CPU: [^ ]+ [1-9][0-9]* interrupts' ;;
    metrics_bridge)
        expected='board_cpu_idle_seconds_total\{cpu="0"\} [0-9.]+;board_memory_available_bytes [0-9]+'
        ;;
    network) expected='lo: [0-9.e+]+ B/s;process [0-9]+: [0-9.e+]+ B/s' ;;
    own_manager) expected="swap: $(kernel SwapTotal) kB, [0-9]+ kB free" ;;
    processes) expected="[0-9]+ .+ [0-9.]+ %;process $$ is \(.+\) in state S" ;;
    recover) expected='connected;[0-9.]+ %;no answer' ;;
    sensors) expected='zone 0: [0-9.]+ C;heap carveout: [0-9]+ bytes' ;;
    system)
        cpus=$(sed 's/.*[-,]//' /sys/devices/system/cpu/possible)
        expected="version $(uname -r), $((cpus + 1)) CPUs"
        ;;
    watch_boards) expected='127.0.0.1:[0-9]+ [0-9.]+ %;127.0.0.1:1 unknown' ;;
    *) expected='a line of this script that says what it writes' ;;
    esac
    while [ -n "$expected" ]; do
        line=${expected%%;*}
        expected=${expected#"$line"}
        expected=${expected#;}
        grep -qxE "$line" "$work/$name.out" && continue
        echo "$name has no line: $line" >&2
        cat "$work/$name.out" "$work/$name.err" >&2
        failed=1
    done
    if grep -q '^exit status' "$work/$name.out"; then
        echo "$name: $(tail -n 1 "$work/$name.out")" >&2
        failed=1
    fi
done
exit $failed
