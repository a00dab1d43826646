# The page in a real browser, over real servers: what it draws, and what it does when they go away.
# Usage: MONCL_BUILD=build/dev /usr/bin/python3 tests/web/page_test.py [CASE...]
import datetime
import os
import shutil
import sys
import tempfile
import time
import unittest

if not shutil.which("chromium", path="/usr/bin") or not shutil.which("chromedriver", path="/usr/bin"):
    print("skipped: this test needs Debian's chromium and chromium-driver")
    sys.exit(77)
try:
    import selenium  # noqa: F401
except ImportError:
    print("skipped: this test needs Debian's python3-selenium")
    sys.exit(77)

from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

import browser
from browser import ask, prefer, program, resize, wait_for

BOARD_FILES = os.path.join(os.path.dirname(__file__), "..", "data", "board", "before")
BLOCKS = 18  # of a simulated board
MARKUP = "<img/src=x/onerror=alert(1)>"

# How many of a chart's pixels have a line's colour: axes and grid are grey.
DRAWN_PIXELS = """
const canvas = document.querySelector(`#block-${arguments[0]} canvas`);
if (!canvas || !canvas.width) return 0;
const copy = new OffscreenCanvas(canvas.width, canvas.height).getContext("2d", {willReadFrequently: true});
copy.drawImage(canvas, 0, 0);
const {data} = copy.getImageData(0, 0, canvas.width, canvas.height);
let drawn = 0;
for (let i = 0; i < data.length; i += 4) {
    const colour = data.slice(i, i + 3);
    drawn += data[i + 3] > 100 && Math.max(...colour) - Math.min(...colour) > 60;
}
return drawn;
"""


class page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.board = cls.enterClassContext(browser.server(program("monsrv"), "--simulate-board"))
        cls.driver = cls.enterClassContext(browser.browser())

    def open(self, *servers, options=(), wait=".block", count=BLOCKS):
        """An exporter of these servers, and its page."""
        exporter = self.enterContext(browser.exporter(program("moncl-exporter"), *servers, options=options))
        resize(self.driver, 1440, 900)
        self.driver.get(exporter.address + "#span=60")
        wait_for(lambda: len(self.find_all(wait)) == count)
        return exporter

    def tearDown(self):
        said = [each["message"] for each in self.driver.get_log("browser")]
        self.driver.get("about:blank")
        if not getattr(self, "may_lose_connection", False):
            self.assertEqual(said, [])

    def find_all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.driver.execute_script(
            "return document.querySelector(arguments[0])?.textContent ?? ''", selector).replace("\u00a0", " ")

    def column(self, block, number):
        return self.driver.execute_script(
            "return [...document.querySelectorAll(`#block-${arguments[0]} tbody tr`)]"
            ".map((row) => row.cells[arguments[1]].textContent.replace('\\u00a0', ' '))", block, number)

    def test_charts_are_drawn_in_both_themes(self):
        self.open(self.board)
        for theme in ["light", "dark"]:
            prefer(self.driver, theme)
            for chart in ["cpu", "cores", "memory", "nnu", "thermal", "pipes"]:
                with self.subTest(theme=theme, chart=chart):
                    self.driver.execute_script("document.getElementById(`block-${arguments[0]}`).scrollIntoView()", chart)
                    wait_for(lambda: self.driver.execute_script(DRAWN_PIXELS, chart) > 50)
        grounds = []
        for choice in ["light", "dark"]:
            self.find_all(f"#theme option[value={choice}]")[0].click()
            grounds.append(self.driver.execute_script("return getComputedStyle(document.body.parentNode).backgroundColor"))
        self.assertNotEqual(*grounds)

    def test_values_are_those_of_the_interface(self):
        exporter = self.open(self.board)
        self.find_all(".hold")[0].click()  # stands still from here
        wait_for(lambda: self.text(".hold") == "Now" and self.text("#block-processes .moment"))
        # Of the time that the block says it shows, as what there was then does not change any more.
        for block, subject, key, figure, written in [
                ("processes", "top", "pid", 7, lambda row: scaled(row["rss_bytes"])),
                ("filesystems", "part", "filesystem", 3, lambda row: scaled(row["size_bytes"])),
                ("disks", "disk", "device", 0, lambda row: row["device"])]:
            with self.subTest(block=block):
                moment = self.driver.execute_script("return document.getElementById(`block-${arguments[0]}`).dataset.time", block)
                samples = ask(exporter, f"history?subject={subject}&since=-15m&points=10000")["samples"]
                rows = next(each["rows"] for each in samples if each["time"] == moment)
                shown = dict(zip(self.column(block, 0), self.column(block, figure)))
                self.assertEqual(shown, {row[key]: written(row) for row in rows})
        self.assertTrue(rows)

    def test_board_that_goes_away_is_shown_and_comes_back(self):
        others = [self.enterContext(browser.server(program("monsrv"), "--simulate-board")) for _ in range(2)]
        killed = others[0]
        exporter = self.open(*others, wait="#block-boards tbody tr", count=2)
        wait_for(lambda: sorted(self.column("boards", 1)) == ["answers"] * 2)
        self.find_all(f"#block-boards a[href*='{killed.address.split(':')[1]}']")[0].click()
        wait_for(lambda: "%" in self.text("#block-nnu .legend b"))
        killed.process.kill()
        wait_for(lambda: self.text("#state").startswith("no answer for"))
        wait_for(lambda: self.text(".keys dd") == "–")
        wait_for(lambda: self.text("#block-nnu .legend b") == "–")
        self.assertIn(killed.address, self.text("#outages"))
        self.assertIn("as of", self.text("#block-processes .moment"))
        self.assertFalse(ask(exporter, "hosts")["hosts"][0]["up"])
        port = killed.address.split(":")[1]
        self.enterContext(browser.server(program("monsrv"), "--simulate-board", port=port))
        wait_for(lambda: self.text("#state") == "answers")
        wait_for(lambda: "%" in self.text(".keys dd"))
        self.assertIn("is back", self.text("#outages"))

    def test_page_comes_back_after_its_exporter(self):
        self.may_lose_connection = True
        exporter = self.open(self.board)
        exporter.process.kill()
        exporter.process.wait()
        wait_for(lambda: self.text("#state").startswith("no exporter for"))
        listen = exporter.address.split("//")[1].strip("/")
        self.enterContext(browser.Program(
            program("moncl-exporter"), "--listen", listen, "--connect", self.board.address))
        wait_for(lambda: self.text("#state") == "answers")
        wait_for(lambda: "%" in self.text(".keys dd"))

    def test_past_is_shown_from_a_recording(self):
        with tempfile.TemporaryDirectory() as folder:
            record = ["--record", os.path.join(folder, "night.db")]
            start = time.time()
            with browser.exporter(program("moncl-exporter"), self.board, options=record):
                time.sleep(6)
            end = time.time()
            exporter = self.enterContext(browser.exporter(program("moncl-exporter"), self.board, options=record))
            self.driver.get("about:blank")
            self.driver.get(f"{exporter.address}#from={start:.1f}&to={end:.1f}")
            for chart in ["cpu", "nnu"]:
                wait_for(lambda: (self.driver.execute_script(DRAWN_PIXELS, chart) or 0) > 50)
            self.assertEqual(self.text(".notice"), "")
            self.assertEqual(self.text(".hold"), "Now")

    def test_no_size_scrolls_sideways(self):
        self.open(self.board)
        for width, height in [(360, 740), (390, 844), (820, 1180), (1440, 900), (3840, 2160)]:
            with self.subTest(width=width):
                resize(self.driver, width, height)
                wide = self.driver.execute_script(
                    "return [...document.querySelectorAll('body *')].filter((each) => !each.closest('.scroll, .plot')"
                    " && !each.matches('.skip, .unseen') && each.getBoundingClientRect().right > innerWidth + 1)"
                    ".map((each) => each.outerHTML.slice(0, 80))")
                self.assertEqual(wide, [])
                self.assertLessEqual(self.driver.execute_script("return document.documentElement.scrollWidth"), width)

    def test_names_with_markup_are_text(self):
        with tempfile.TemporaryDirectory() as folder:
            os.chmod(folder, 0o755)  # for a server that was started as root and is not any more
            root = shutil.copytree(BOARD_FILES, os.path.join(folder, "root"))
            with open(os.path.join(root, "proc/diskstats"), "a") as disks:
                disks.write(f"   8       0 {MARKUP} 10 0 80 0 10 0 80 0 0 0 0 0 0 0 0 0 0\n")
            with open(os.path.join(root, "proc/interrupts"), "a") as interrupts:
                interrupts.write(f" 99:  7  0  GICv3  99 Level  {MARKUP}\n")
            board = self.enterContext(browser.server(program("monsrv"), "--root", root))
            self.open(board, wait="#block-disks", count=1)
            wait_for(lambda: MARKUP in self.column("disks", 0))
            wait_for(lambda: MARKUP in self.column("interrupts", 1))
            self.assertEqual(self.find_all("main img"), [])

    def test_table_is_sorted_by_keyboard(self):
        self.open(self.board)
        self.find_all(".hold")[0].click()
        heading = self.find_all("#block-processes th")[0]
        button = heading.find_element(By.TAG_NAME, "button")
        self.driver.execute_script("arguments[0].focus()", button)
        for key, order, is_sorted in [(Keys.ENTER, "ascending", lambda pids: pids == sorted(pids)),
                                      (Keys.SPACE, "descending", lambda pids: pids == sorted(pids, reverse=True))]:
            with self.subTest(order=order):
                self.driver.switch_to.active_element.send_keys(key)
                self.assertEqual(heading.get_attribute("aria-sort"), order)
                pids = [int(each) for each in self.column("processes", 0)]
                self.assertTrue(len(pids) > 1 and is_sorted(pids), pids)

    def test_charts_are_read_and_zoomed_by_keyboard(self):
        exporter = self.open(self.board)
        chart = self.find_all("#block-nnu .plot")[0]
        wait_for(lambda: "%" in self.text("#block-nnu .legend b"))
        chart.send_keys(Keys.ARROW_LEFT)
        samples = ask(exporter, "history?subject=nnu&since=-15m&points=10000")["samples"]
        self.assertIn(self.text("#spoken"), [spoken(each) for each in samples])
        cursors = "return [...document.querySelectorAll('.u-cursor-x:not(.u-off)')].length"
        self.assertGreater(self.driver.execute_script(cursors), 5)  # on all charts
        chart.send_keys("+")
        self.assertIn("span=30", self.driver.current_url)
        chart.send_keys(Keys.SHIFT + Keys.ARROW_LEFT)
        wait_for(lambda: "from=" in self.driver.current_url and self.text(".hold") == "Now")
        chart.send_keys(Keys.NULL + Keys.HOME)
        wait_for(lambda: "from=" not in self.driver.current_url)


def spoken(sample):
    """What a reader hears of a sample of the accelerator's cores."""
    at = datetime.datetime.fromisoformat(sample["time"].replace("Z", "+00:00")).astimezone()
    return f"{at:%H:%M:%S}: " + ", ".join(f"{row['core']} {row['usage_percent']:.1f} %" for row in sample["rows"])


def scaled(number):
    """Bytes as the page writes them."""
    for name in ["B", "KiB", "MiB", "GiB"]:
        if number < 1024 or name == "GiB":
            return f"{number:.1f} {name}" if name != "B" else f"{number} B"
        number /= 1024


if __name__ == "__main__":
    unittest.main(verbosity=2)
