# Boards, exporter and Chromium as processes of their own, for the tests of the page and for pictures of
# it. Each is ended by the end of its `with`.
import contextlib
import json
import os
import subprocess
import tempfile
import time
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

ARGUMENTS = [
    "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
    "--disable-background-networking", "--disable-component-update", "--disable-sync",
]


class Program:
    """A program that says where it listens in its first line."""

    def __init__(self, *command):
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        said = self.process.stdout.readline()
        if " at " not in said:
            self.__exit__()
            raise RuntimeError(f"{command[0]} said {said!r}")
        self.address = said.split(" at ")[1].split()[0]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.process.stdout.close()


def server(program, *options, port=0):
    return Program(program, "--port", str(port), *options)


def exporter(program, *servers, options=()):
    connect = [word for each in servers for word in ("--connect", each.address)]
    return Program(program, "--listen", "127.0.0.1:0", *connect, *options)


def ask(of, path):
    """What the exporter's interface answers, decoded."""
    with urllib.request.urlopen(f"{of.address}api/v1/{path}", timeout=10) as answer:
        return json.load(answer)


@contextlib.contextmanager
def browser():
    """Chromium without a window, with nothing kept from another run."""
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
        for argument in [*ARGUMENTS, f"--user-data-dir={folder}"]:
            options.add_argument(argument)
        driver = webdriver.Chrome(options=options, service=Service("/usr/bin/chromedriver"))
        try:
            yield driver
        finally:
            driver.quit()


def resize(driver, width, height):
    driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
        "width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 600})


def prefer(driver, theme):
    driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
        "features": [{"name": "prefers-color-scheme", "value": theme}]})


def wait_for(condition, seconds=30):
    """The first true value of condition(); asked until then."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"waited {seconds} s in vain for {condition.__name__}")
        time.sleep(0.1)


def build_folder():
    """Of the programs to run: MONCL_BUILD, or that of scripts/demo."""
    return os.environ.get("MONCL_BUILD", "build/demo")


def program(name):
    return os.path.join(build_folder(), {"monsrv": "server/monsrv", "moncl-exporter": "exporter/moncl-exporter"}[name])
