#!/bin/sh
# Records this host, loads the recording into a Prometheus, and compares what a query returns with
# what SQL returns.
# Usage: recording_in_prometheus.sh MONCL
set -eu
moncl=$1
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

"$moncl" record "$folder/host.db" cpu,mem 0.1 20
"$moncl" export "$folder/host.db" --format openmetrics >"$folder/host.om"
promtool tsdb create-blocks-from openmetrics "$folder/host.om" "$folder/blocks" >/dev/null

python3 - "$folder" <<'END'
import json, os, socket, sqlite3, subprocess, sys, time, urllib.parse, urllib.request

folder = sys.argv[1]
with socket.socket() as free:
    free.bind(("127.0.0.1", 0))
    address = "127.0.0.1:%d" % free.getsockname()[1]
open(folder + "/prometheus.yml", "w").close()
server = subprocess.Popen(
    ["prometheus", "--config.file=" + folder + "/prometheus.yml", "--web.listen-address=" + address,
     "--storage.tsdb.path=" + folder + "/blocks", "--storage.tsdb.retention.time=100y"],
    stderr=open(folder + "/log", "w"))

def query(text, at):
    url = "http://%s/api/v1/query?%s" % (address, urllib.parse.urlencode({"query": text, "time": at}))
    for attempt in range(100):
        try:
            result = json.load(urllib.request.urlopen(url, timeout=5))["data"]["result"]
            return sorted((round(t * 1000), float(v)) for s in result for t, v in s["values"])
        except OSError:
            time.sleep(0.1)
    sys.exit("prometheus does not answer: " + open(folder + "/log").read())

try:
    file = sqlite3.connect("file:%s/host.db?mode=ro" % folder, uri=True)
    end = file.execute("SELECT max(time) FROM ticks").fetchone()[0] / 1000 + 1
    for metric, sql in [
        ('moncl_cpu_seconds_total{cpu="0",mode="user"}', "SELECT time, user_seconds FROM cpu WHERE cpu = '0'"),
        ("moncl_memory_available_bytes", "SELECT time, available_bytes FROM mem"),
        ("moncl_memory_used_ratio", "SELECT time, round(used_percent / 100, 6) FROM mem"),
    ]:
        loaded = query(metric + "[1h]", end)
        recorded = sorted((t, float(v)) for t, v in file.execute(sql))
        if loaded != recorded or len(recorded) != 20:
            sys.exit("%s: Prometheus has %s, SQL has %s" % (metric, loaded, recorded))
finally:
    server.kill()
END
