#!/usr/bin/python3
# What one update of the page costs in Chromium: CPU time of the page's thread, all blocks in view, twelve
# of them charts. A simulated board is asked ten times a second until the charts have 900 points.
# Usage: MONCL_BUILD=build/release bench/page_update.py [ROUNDS]     ROUNDS: of 10 s each [5]
import os
import statistics
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../tests/web"))
import browser

COUNT_UPDATES = """
window.updates = 0;
const native = window.requestAnimationFrame.bind(window);
window.requestAnimationFrame = (draw) => native((now) => { ++window.updates; draw(now); });
"""
SIZES = [(1440, 3000), (3840, 2160)]  # all blocks are in view
KINDS = {"all": "TaskDuration", "script": "ScriptDuration", "layout": "LayoutDuration", "style": "RecalcStyleDuration"}


def figures(driver):
    got = {each["name"]: each["value"] for each in driver.execute_cdp_cmd("Performance.getMetrics", {})["metrics"]}
    return {kind: got[name] for kind, name in KINDS.items()}, driver.execute_script("return window.updates")


def main():
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 5
    print(f"medians of {rounds} rounds, ms of CPU an update:")
    with browser.server(browser.program("monsrv"), "--simulate-board") as board, \
            browser.exporter(browser.program("moncl-exporter"), board, options=["--interval", "0.1"]) as exporter, \
            browser.browser() as driver:
        driver.execute_cdp_cmd("Performance.enable", {"timeDomain": "threadTicks"})
        browser.resize(driver, *SIZES[0])
        driver.get(f"{exporter.address}#span=90")
        time.sleep(95)
        driver.execute_script(COUNT_UPDATES)
        for width, height in SIZES:
            browser.resize(driver, width, height)
            time.sleep(2)
            measure(driver, rounds, f"{width}x{height}")


def measure(driver, rounds, size):
    charts = driver.execute_script(
        "return [...document.querySelectorAll('.plot canvas')]"
        ".filter((each) => each.getBoundingClientRect().bottom < innerHeight).length")
    costs = []
    for _ in range(rounds):
        before, updates = figures(driver)
        time.sleep(10)
        after, updates_then = figures(driver)
        costs.append({kind: (after[kind] - before[kind]) / (updates_then - updates) * 1000 for kind in KINDS})
    for kind in KINDS:
        values = [each[kind] for each in costs]
        print(f"{size} {charts} charts {kind:7} {statistics.median(values):5.1f} ({min(values):.1f} to {max(values):.1f})")


main()
