#!/usr/bin/python3
"""Lets a real Prometheus watch three simulated boards with the files of contrib/, by /metrics and by
/probe: its rules and the dashboard have data, and a board that is killed and started again sets an alert
off and ends it.
Usage: fleet_in_prometheus.py MONSRV EXPORTER CONTRIB
"""
import json, os, re, shutil, signal, socket, subprocess, sys, tempfile, time, urllib.parse, urllib.request

monsrv, exporter, contrib = sys.argv[1:]
folder = tempfile.mkdtemp()
deadline = time.monotonic() + 55
processes = []


def start(*command):
    processes.append(subprocess.Popen(command, stdout=subprocess.PIPE, text=True))
    return processes[-1]


def start_and_get_address(*command):
    process = start(*command)
    return process, re.search(r"127\.0\.0\.1:\d+", process.stdout.readline()).group()


def start_prometheus(config):
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        address = "127.0.0.1:%d" % free.getsockname()[1]
    start("prometheus", "--log.level=error", f"--config.file={folder}/{config}",
          f"--web.listen-address={address}", f"--storage.tsdb.path={folder}/data_of_{config}")
    return f"http://{address}"


def get(url, **arguments):
    with urllib.request.urlopen(f"{url}?{urllib.parse.urlencode(arguments)}", timeout=5) as answer:
        return answer.read().decode()


def ask(prometheus, what, **arguments):
    return json.loads(get(f"{prometheus}/api/v1/{what}", **arguments))["data"]


def query(prometheus, expression):
    result = ask(prometheus, "query", query=expression)["result"]
    return [(each["metric"], float(each["value"][1])) for each in result]


def wait_for(what, is_true):
    last = None
    while time.monotonic() < deadline:
        try:
            if is_true():
                return
        except OSError as failure:  # Prometheus is still starting, or does not like the query
            last = failure
        time.sleep(0.2)
    sys.exit(f"waited in vain: {what}; {last}")


def promtool(*arguments, **more):
    done = subprocess.run(["promtool", *arguments], cwd=folder, capture_output=True, text=True, **more)
    if done.returncode != 0 or done.stderr:
        sys.exit(f"promtool {arguments}: {done.stdout}{done.stderr}")


def copy_with_short_times(at):
    for name in os.listdir(contrib + "/prometheus"):
        with open(f"{contrib}/prometheus/{name}") as file:
            text = file.read()
        text = re.sub("scrape_interval: .*", "scrape_interval: 3s", text)
        text = re.sub("evaluation_interval: .*", "evaluation_interval: 1s", text)
        if not name.endswith("_test.yml"):
            text = re.sub(" for: .*", " for: 1s", text)
        with open(f"{folder}/{name}", "w") as file:
            file.write(text.replace("127.0.0.1:9757", at))


def dashboard_expressions():
    with open(contrib + "/grafana/moncl.json") as file:
        panels = json.load(file)["panels"]
    for each in (target for panel in panels for target in panel["targets"]):
        yield each["expr"].replace("$host", ".*").replace("$__rate_interval", "1m")


def rule_expressions(prometheus):
    for group in ask(prometheus, "rules")["groups"]:
        for rule in group["rules"]:
            # An alert has data only while it fires, but the metrics that it compares always have some.
            yield from ([rule["name"]] if rule["type"] == "recording" else
                        re.findall(r"[a-z_]*:?moncl_[a-z_]*(?::\w+)?|\bup\b", rule["query"]))


def is_firing(prometheus, host):
    firing = [each["labels"] for each in ask(prometheus, "alerts")["alerts"] if each["state"] == "firing"]
    return any(each["alertname"] == "MonclBoardAway" and each["host"] == host for each in firing)


def watch_a_fleet():
    boards = [start_and_get_address(monsrv, "--port", "0", "--simulate-board", "--seed", str(seed))
              for seed in (1, 2, 3)]
    hosts = [address for _, address in boards]
    asked, at = start_and_get_address(
        exporter, "--listen", "127.0.0.1:0", "--allow-target", "127.0.0.1:*",
        *(word for host in hosts for word in ("--connect", host)))
    promtool("check", "metrics", input=get(f"http://{at}/metrics"))
    promtool("test", "rules", f"{contrib}/prometheus/moncl.rules_test.yml")
    copy_with_short_times(at)
    with open(folder + "/boards.json", "w") as file:
        json.dump([{"targets": hosts, "labels": {"site": "yard"}}], file)
    for config in ("prometheus.yml", "prometheus-probe.yml"):
        promtool("check", "config", config)

    fleet = start_prometheus("prometheus.yml")
    probing = start_prometheus("prometheus-probe.yml")
    wait_for("rules", lambda: len(list(rule_expressions(fleet))) > 10)
    for expression in [*rule_expressions(fleet), *dashboard_expressions()]:
        wait_for(f"data of {expression}", lambda: query(fleet, expression))
    wait_for("every board probed", lambda: sorted(
        (labels["host"], labels["instance"], labels["site"], value)
        for labels, value in query(probing, "moncl_up")) == sorted(
            (host, host, "yard", 1) for host in hosts))
    if query(fleet, '{exported_instance!=""}') or is_firing(fleet, hosts[0]):
        sys.exit("a label of ours was renamed, or an alert fires too early")

    boards[0][0].kill()
    for prometheus in (fleet, probing):
        wait_for("alert", lambda: is_firing(prometheus, hosts[0]))
    start_and_get_address(monsrv, "--port", hosts[0].split(":")[1], "--simulate-board")
    for prometheus in (fleet, probing):
        wait_for("its end", lambda: query(prometheus, f'moncl_up{{host="{hosts[0]}"}} == 1')
                 and not is_firing(prometheus, hosts[0]))
        others = query(prometheus, f'min_over_time(moncl_up{{host!="{hosts[0]}"}}[1m])')
        if [value for _, value in others] != [1, 1]:
            sys.exit(f"the others were away, too: {others}")
    asked.terminate()
    if asked.wait(10) != 0:
        sys.exit("moncl-exporter did not end well")


signal.signal(signal.SIGALRM, lambda *_: sys.exit("this takes too long"))
signal.alarm(59)
try:
    watch_a_fleet()
finally:
    for process in processes:
        process.kill()
        process.wait()
    shutil.rmtree(folder)
