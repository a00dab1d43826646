# What bench/scrape_beside_node_exporter measures.
import contextlib
import gzip
import http.client
import os
import statistics
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../tests/web"))
os.environ.setdefault("MONCL_BUILD", "build/release")
import browser

# What the usual subjects of moncl-exporter are about.
COLLECTORS = ["cpu", "cpufreq", "meminfo", "diskstats", "filesystem", "netdev", "thermal_zone", "uname"]
NODE_PORT = 19100
# As Prometheus asks.
HEADERS = {"Accept": "application/openmetrics-text;version=1.0.0,text/plain;version=0.0.4;q=0.5",
           "Accept-Encoding": "gzip"}


class CpuClock:
    """CPU time of a process with all its threads, also those that have ended."""

    def __init__(self, pid):
        self.clock = (~pid << 3) | 2  # as clock_getcpuclockid makes it

    def milliseconds(self):
        return time.clock_gettime_ns(self.clock) / 1e6


class Scraped:
    """One exporter, over a connection that stays open."""

    def __init__(self, name, address, processes):
        self.name = name
        self.connection = http.client.HTTPConnection(address, timeout=10)
        self.clocks = [CpuClock(each.pid) for each in processes]
        self.costs = []
        self.times = []

    def scrape(self):
        before = [each.milliseconds() for each in self.clocks]
        start = time.monotonic()
        self.connection.request("GET", "/metrics", headers=HEADERS)
        answer = self.connection.getresponse()
        sent = answer.read()
        self.times.append((time.monotonic() - start) * 1000)
        time.sleep(0.1)  # threads that have answered go back to sleep
        self.costs.append([each.milliseconds() - then for each, then in zip(self.clocks, before)])
        if answer.status != 200:
            raise RuntimeError(f"{self.name} answers {answer.status}")
        text = gzip.decompress(sent) if answer.headers.get("Content-Encoding") == "gzip" else sent
        self.bytes = len(sent)
        self.series = sum(not line.startswith(b"#") for line in text.splitlines())

    def mean_cost(self):
        return [statistics.fmean(each) for each in zip(*self.costs)]


@contextlib.contextmanager
def ending(command):
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        yield process
    finally:
        process.terminate()
        process.wait(10)


def host_of(exporter):
    return exporter.address.split("//")[1].rstrip("/")


def load():
    return f"load {os.getloadavg()[0]:.1f}"


def compare_scrapes(count):
    node = ["prometheus-node-exporter", f"--web.listen-address=127.0.0.1:{NODE_PORT}",
            "--web.disable-exporter-metrics", "--collector.disable-defaults"]
    node += [f"--collector.{each}" for each in COLLECTORS]
    with browser.server(browser.program("monsrv")) as server, \
            browser.exporter(browser.program("moncl-exporter"), server) as exporter, ending(node) as node_process:
        time.sleep(2)
        ours = Scraped("moncl-exporter", host_of(exporter), [server.process, exporter.process])
        theirs = Scraped("node_exporter", f"127.0.0.1:{NODE_PORT}", [node_process])
        for each in (ours, theirs):
            each.scrape()  # the first one connects
            each.costs.clear()
            each.times.clear()
        for _ in range(count):
            start = time.monotonic()
            for each in (ours, theirs):
                each.scrape()
            time.sleep(max(0, start + 1 - time.monotonic()))
    for each in (ours, theirs):
        parts = " + ".join(f"{cost:.2f}" for cost in each.mean_cost())
        print(f"{each.name}: {sum(each.mean_cost()):.2f} ms of CPU a scrape ({parts}), {each.series} series, "
              f"{each.bytes} bytes, answered in {statistics.median(each.times):.1f} ms")
    ratio = sum(ours.mean_cost()) / sum(theirs.mean_cost())
    print(f"ratio {ratio:.2f}, {1000 * sum(ours.mean_cost()) / ours.series:.1f} us a series "
          f"against {1000 * sum(theirs.mean_cost()) / theirs.series:.1f} us; {load()}")


def scrape_boards(number):
    with contextlib.ExitStack() as opened:
        boards = [opened.enter_context(browser.server(browser.program("monsrv"), "--simulate-board"))
                  for _ in range(number)]
        exporter = opened.enter_context(browser.exporter(browser.program("moncl-exporter"), *boards))
        all_boards = Scraped("moncl-exporter", host_of(exporter), [exporter.process])
        all_boards.scrape()
        first = all_boards.times.pop()
        for _ in range(20):
            all_boards.scrape()
            time.sleep(0.5)
    print(f"{number} boards: the first scrape {first:.0f} ms, later ones {statistics.median(all_boards.times):.0f} ms "
          f"(at most {max(all_boards.times):.0f}), {all_boards.series} series, {all_boards.bytes} bytes; {load()}")


def compare_page(seconds):
    terminal = ["tmux", "-u", "-L", "moncl_page_cost"]
    with browser.server(browser.program("monsrv")) as server, \
            browser.exporter(browser.program("moncl-exporter"), server) as exporter, browser.browser() as driver:
        driver.get(exporter.address)
        subprocess.run([*terminal, "-f", "/dev/null", "new-session", "-d", "-x", "200", "-y", "50",
                        "exec htop -d 10"], check=True, env={**os.environ, "LC_ALL": "C.UTF-8"})
        try:
            htop = int(subprocess.check_output([*terminal, "display", "-p", "#{pane_pid}"]))
            time.sleep(5)
            clocks = {"monsrv": CpuClock(server.process.pid), "moncl-exporter": CpuClock(exporter.process.pid),
                      "htop": CpuClock(htop)}
            before = {name: each.milliseconds() for name, each in clocks.items()}
            time.sleep(seconds)
            used = {name: each.milliseconds() - before[name] for name, each in clocks.items()}
            samples = browser.ask(exporter, f"history?subject=cpu&since=-{seconds}s&points=3600")["samples"]
            if len(samples) < seconds // 2:
                raise RuntimeError(f"the page was given only {len(samples)} samples")
        finally:
            subprocess.run([*terminal, "kill-server"], check=False)
    processes = sum(each.isdigit() for each in os.listdir("/proc"))
    print(f"{seconds} s, {processes} processes: the page {used['monsrv'] + used['moncl-exporter']:.0f} ms of CPU "
          f"(monsrv {used['monsrv']:.0f}, moncl-exporter {used['moncl-exporter']:.0f}), htop {used['htop']:.0f} ms; {load()}")


MODES = {"scrapes": (compare_scrapes, 90), "boards": (scrape_boards, 50), "page": (compare_page, 60)}
run, usual = MODES[sys.argv[1]]
run(int(sys.argv[2]) if len(sys.argv) > 2 else usual)
