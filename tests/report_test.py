#!/usr/bin/env python3
"""The page of `zorvctl report` in a browser: charts drawn, numbers right, hostile texts inert, nothing fetched.

    report_test.py BIN      BIN: the folder of a build's programs

One headless Chromium serves all cases, driven over WebDriver on loopback. Prints results as the other test programs do.
"""
import atexit
import base64
import contextlib
import ctypes
import http.client
import json
import os
import pathlib
import select
import signal
import socket
import sqlite3
import subprocess
import sys
import time

from support import cases

DEADLINE = 240  # seconds for a step; steps take a few
ARGUMENTS = ("--headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking "
             "--disable-component-update --disable-sync --disable-dev-shm-usage --disable-breakpad "
             "--force-device-scale-factor=1 --window-size=1200,900").split()
DEVICE = "0f5c2b5e-4a90-4f3e-9b61-2f08c5d7a9"
TABLES = """
    CREATE TABLE Thermal (local_time DATE, freq INTEGER, guid STRING, cpu_temp INTEGER, gpu_temp INTEGER,
        disk_temp STRING, cpu_usage DOUBLE, rpm_fans STRING, package_power INTEGER);
    CREATE TABLE Battery_Power (local_time DATE, freq INTEGER, guid STRING, full_capacity INTEGER,
        current_capacity INTEGER, cyclecount INTEGER, cellvoltages STRING, current INTEGER, temperature INTEGER,
        ac_dc INTEGER, lid_status INTEGER);
    CREATE TABLE SysInfo (model_name STRING, local_time DATE, guid STRING, cpu_info STRING,
        battery_design_capacity INTEGER);
    CREATE TABLE UserBehavior (local_time DATE, freq INTEGER, guid STRING);"""
# Rows 30 minutes apart: every ninth says 0 or -1 in one way or another, which is no value.
ROWS = """
    WITH RECURSIVE n(n) AS (SELECT 0 UNION ALL SELECT n + 1 FROM n WHERE n < :last),
        row AS (SELECT n, datetime('2026-03-01', (n * :minutes) || ' minutes') AS t, n % 9 = 3 AS bad FROM n)
    INSERT INTO {} FROM row"""
THERMAL = """Thermal SELECT t, 6, :guid, CASE WHEN n = :spike THEN 104 WHEN bad THEN 0 ELSE 45 + n * 7 % 23 END,
    CASE WHEN bad THEN 4294967295 ELSE 30 + n % 5 END, CASE WHEN bad THEN NULL ELSE '15, ' || (20 + n % 3) END,
    CASE WHEN n % 5 THEN n * 13 % 97 + 0.25 ELSE 0 END, (2400 + n % 800) || ', -1, ' || (n % 300), n % 2 * 11"""
BATTERY = """Battery_Power SELECT t, 2, :guid, CASE WHEN bad THEN 0 ELSE 59740 - n END,
    CASE WHEN bad THEN 4294967295 ELSE 30000 + n * 37 % 20000 END, n / 40, CASE WHEN bad THEN '0' ELSE
    (4071 + n % 9) || ', ' || (3900 - n % 7) END, CASE WHEN n % 2 THEN -874 ELSE 0 END, 25 + n % 4, n % 2, 1"""
EVENTS = "UserBehavior SELECT t, 10 + n % 15, :guid"


def gap(column):
    return f"CASE WHEN {column} NOT IN (0, -1, 4294967295) THEN {column} END"


def item(column, at):
    return gap(f"CAST(json_extract('[' || {column} || ']', '$[{at}]') AS REAL)")


def kept(column, witness):
    return f"CASE WHEN {gap(witness)} IS NOT NULL THEN {column} END"


# Table, title of its chart, and the value of each line as SQLite tells it.
CHARTS = [
    ("Battery_Power", "Capacity", [gap("full_capacity"), gap("current_capacity"), "63000"]),
    ("Battery_Power", "Charge", [f"{gap('current_capacity')} * 100.0 / {gap('full_capacity')}"]),
    ("Battery_Power", "Charge cycles", [kept("cyclecount", "full_capacity")]),
    ("Battery_Power", "Voltage of the cells", [item("cellvoltages", 0), item("cellvoltages", 1)]),
    ("Battery_Power", "Spread of the cells", [f"{item('cellvoltages', 0)} - {item('cellvoltages', 1)}"]),
    ("Battery_Power", "Current", [kept("current", "full_capacity")]),
    ("Battery_Power", "Battery and charger", [gap("temperature")]),
    ("Thermal", "Processor, graphics, board and disks",
     [gap("cpu_temp"), gap("gpu_temp"), item("disk_temp", 0), item("disk_temp", 1)]),
    ("Thermal", "Processor load", [kept("cpu_usage", "cpu_temp")]),
    ("Thermal", "Processor power", [kept("package_power", "cpu_temp")]),
    ("Thermal", "Fans", [f"json_extract('[' || rpm_fans || ']', '$[{fan}]')" for fan in (0, 2)]),
]
# Of each chart: title, texts of its table, for each line how many pixels of each row have its colour, and the label.
LOOK = """
const style = getComputedStyle(document.documentElement), texts = (list) => [...list].map((each) => each.textContent);
return [...document.querySelectorAll("figure")].map((figure) => {
    const details = figure.querySelector("details"), canvas = figure.querySelector("canvas");
    if (!canvas) return [figure.firstChild.textContent, null, [], ""];
    const pixels = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data;
    const lines = [...figure.querySelectorAll(".u-series")].slice(1).map((_, line) => {
        const hex = style.getPropertyValue(`--line-${line + 1}`).trim(), rows = new Map();
        const wanted = [1, 3, 5].map((at) => parseInt(hex.substr(at, 2), 16));
        for (let i = 0; i < pixels.length; i += 4) {
            if (pixels[i + 3] > 200 && wanted.every((part, at) => Math.abs(part - pixels[i + at]) < 12)) {
                const row = Math.floor(i / 4 / canvas.width);
                rows.set(row, (rows.get(row) ?? 0) + 1);
            }
        }
        return [...rows];
    });
    if (details) details.open = true, details.dispatchEvent(new Event("toggle"));
    const rows = details && [...details.querySelectorAll("tbody tr")].map((row) => texts(row.children));
    return [figure.firstChild.textContent, rows, lines, canvas.getAttribute("aria-label")];
});"""


class Browser:
    def __init__(self, folder):
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                       text=True, start_new_session=True)
        self.path = ""
        atexit.register(self.close)
        lines = iter(self.driver.stdout.readline, "")
        self.port = next(int(line.split()[-1].rstrip(".")) for line in lines if "successfully on port" in line)
        options = {"args": ARGUMENTS + [f"--user-data-dir={folder}/profile"]}
        wanted = {"goog:chromeOptions": options, "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"},
                  "timeouts": {"pageLoad": DEADLINE * 1000, "script": DEADLINE * 1000}}
        self.path = "/session/" + self.call("POST", "/session", {"capabilities": {"alwaysMatch": wanted}})["sessionId"]

    def call(self, method, path, body=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=DEADLINE)
        connection.request(method, self.path + path, None if method != "POST" else json.dumps(body or {}))
        value = json.loads(connection.getresponse().read())["value"]
        assert not (isinstance(value, dict) and "error" in value), value
        return value

    def run(self, script, *arguments):
        return self.call("POST", "/execute/sync", {"script": script, "args": arguments})

    def emulate(self, command, **parameters):
        return self.call("POST", "/goog/cdp/execute", {"cmd": f"Emulation.{command}", "params": parameters})

    def open(self, page):
        self.call("POST", "/url", {"url": page.as_uri()})

    def log(self, kind):
        return self.call("POST", "/se/log", {"type": kind})

    def close(self):
        with contextlib.suppress(Exception):
            self.call("DELETE", "")
        with contextlib.suppress(ChildProcessError):
            os.killpg(self.driver.pid, signal.SIGKILL)
            self.driver.wait(DEADLINE)
            while os.waitpid(-1, 0):  # until none is left
                pass


class Tests:
    def __init__(self, programs, folder):
        self.programs, self.folder = programs, folder
        os.environ.update(ZORV_MACHINE=str(folder / "machine"), TZ="Europe/Berlin")
        self.canary = socket.create_server(("127.0.0.1", 0))  # whoever is lured stays in its queue
        self.lure = f"http://127.0.0.1:{self.canary.getsockname()[1]}/"
        self.bait = f"</script><script>taken=1</script><img src={self.lure} onerror=taken=1>"
        self.browser = Browser(folder)

    def tool(self, *words, code=0, program="zorvctl"):
        done = subprocess.run([self.programs / program, *words], capture_output=True, text=True, timeout=DEADLINE)
        assert done.returncode == code, (words, done)
        return done.stderr

    def database(self, name, device, *parts, last=400, minutes=30, spike=-1):
        path = self.folder / name
        with sqlite3.connect(path) as connection:
            connection.executescript(TABLES)
            connection.execute("INSERT INTO SysInfo VALUES ('ZORV ' || ?2, '2026-03-01 00:00:00', ?1, ?3, 63000)",
                               (DEVICE + device, device, self.bait))
            values = {"guid": DEVICE + device, "last": last, "minutes": minutes, "spike": spike}
            for part in parts:
                connection.execute(ROWS.format(part), values)
        connection.close()
        return path

    def report(self, *files, code=0):
        page = self.folder / f"page-{time.monotonic_ns()}.html"
        errors = self.tool("report", *files, "--out", page, code=code)
        self.browser.open(page)
        return errors

    def compare(self, path, title, look, table, values, bucket):
        """The chart's table against SQLite's answer."""
        rows = next(rows for name, rows, _, _ in look if name.split(" (")[0] == title)
        with sqlite3.connect(path) as connection:
            parts = ", ".join(f"count({v}), min({v}), avg({v}), max({v})" for v in values)
            wanted = connection.execute(f"SELECT {bucket}, {parts} FROM {table} GROUP BY 1 ORDER BY 1 DESC").fetchall()
        assert len(rows) == len(wanted) > 5, (title, len(rows), len(wanted))
        for shown, right in zip(rows, wanted):
            numbers = [None if cell == "–" else float(cell.replace(",", "")) for cell in shown[1:]]
            same = all(a is b is None or abs(a - b) < 0.06 for a, b in zip(numbers, right[1:], strict=True))
            assert shown[0] == right[0] and same, (title, shown, right)

    def test_draws_every_chart_and_its_numbers_are_those_of_sqlite(self):
        path = self.database("O_small.db", "01", THERMAL, BATTERY, EVENTS)
        self.report(path)
        look = self.browser.run(LOOK)
        for table, title, values in CHARTS:
            self.compare(path, title, look, table, values, "date(local_time)")
        for title, rows, lines, label in look:
            if rows is None and title != "What lasted how long":
                assert title == "Voltage regulator and graphics memory (°C)", title  # no such column in the file
                continue
            assert label and all(sum(count for _, count in line) > 30 for line in lines), (title, lines)
        days = self.browser.run("return [...document.querySelectorAll('.months td[title]')].map((day) => day.title)")
        assert len(days) == 31 and days[0] == "144 samples" and days[30] == "0 samples", days
        assert "17 lid closed" in self.browser.run(
            "const events = document.querySelector('#timeline > details'); events.open = true;"
            "events.dispatchEvent(new Event('toggle')); return events.textContent")

    def test_lets_no_text_of_the_records_become_markup(self):
        path = self.database("<img src=x onerror=taken=1>.db", "02", THERMAL, BATTERY)
        with sqlite3.connect(path) as connection:
            connection.execute("UPDATE Thermal SET rpm_fans = ?1, disk_temp = '9e999, 0x10, NaN', cpu_temp = ?1 "
                               "WHERE rowid % 2", (self.bait,))
            connection.execute("INSERT INTO UserBehavior VALUES ('2026-03-02 00:00:00', 'constructor', ?1), "
                               "(?2, 17, ?1)", (DEVICE + "02", self.bait))
            connection.execute("UPDATE SysInfo SET model_name = CAST(x'3C62FF3E' AS TEXT)")
        connection.close()
        self.report(path)
        seen = self.browser.run("return [window.taken ?? null, document.scripts.length,"
                                "document.querySelectorAll('img, b').length, document.body.innerText]")
        assert seen[:3] == [None, 2, 0], seen[:3]
        for text in (self.bait, "<b\\xFF>", "<img src=x onerror=taken=1>.db", "1 row without a readable time"):
            assert text in seen[3], text

    def test_shows_this_machine(self):
        self.tool("machine", "init")
        self.tool("-j0", program="zorvalis-agent-service")
        self.tool("registry", "set", "product", "BGSERVER_URL", self.bait)
        with open(self.folder / "machine/eventlog.jsonl", "a", encoding="utf-8") as log:
            log.write(json.dumps({"time": 1770000000, "type": 1, "source": "Zorvalis", "strings": [self.bait]}) + "\n")
        self.report()
        texts = self.browser.run("return Object.fromEntries([...document.querySelectorAll('section')].map((section) => "
                                 "[section.id, section.innerText]))")
        for section, text in (("machine", "ZORV Quartz Q7-1442"), ("settings", "every 30 minutes"),
                              ("settings", self.bait), ("log", self.bait), ("log", "2026-02-02 03:40"), ("log", "(UTC+0"),
                              ("uploads", "Next upload:"), ("battery", "59,740 mWh"), ("summary", "94.8 %")):
            assert text in texts[section], (section, text, texts[section])

    def test_reads_many_devices_and_names_bad_files(self):
        files = [self.database("O_a.db", "0a", BATTERY), self.database("O_b.db", "0b", THERMAL),
                 self.folder / "absent.db"]
        assert "absent.db does not exist" in self.report(*files, code=1)
        choose = ("const choice = document.getElementById('device'); choice.selectedIndex = arguments[0];"
                  "choice.dispatchEvent(new Event('change')); return new Promise((done) => setTimeout(() =>"
                  "done(['machine', 'files', 'battery'].map((id) => document.getElementById(id).innerText)), 0))")
        for at, device, battery in ((0, "0a", True), (1, "0b", False)):
            machine, listed, charts = self.browser.run(choose, at)
            assert str(self.folder) not in listed
            assert DEVICE + device in machine and "cannot be read" in listed and (" mWh" in charts) == battery, charts
        self.tool("report", files[0], code=2)
        self.tool("report", files[0], "--out", files[1], code=2)

    def test_serves_a_telephone_a_keyboard_paper_and_the_dark(self):
        self.browser.emulate("setDeviceMetricsOverride", width=360, height=800, deviceScaleFactor=1, mobile=True)
        self.browser.emulate("setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": "dark"}])
        self.report(self.database("O_c.db", "0c", THERMAL, BATTERY, EVENTS))
        look = self.browser.run("return [document.documentElement.scrollWidth,"
                                "getComputedStyle(document.body).backgroundColor]")
        assert look == [360, "rgb(20, 23, 27)"], look
        assert self.browser.run("return [...document.querySelectorAll('select, input, button, canvas, a, summary')]"
                                ".filter((each) => !(each.labels?.length || each.textContent.trim() ||"
                                "each.getAttribute('aria-label'))).map((each) => each.outerHTML)") == []
        days = self.browser.run("const day = document.getElementById('from'); day.value = '2026-03-05';"
                                "day.dispatchEvent(new Event('change')); return new Promise((done) => setTimeout(() =>"
                                "done([day.value, document.getElementById('to').value]), 0))")
        assert days == ["2026-03-05", "2026-03-09"], days
        assert base64.b64decode(self.browser.call("POST", "/print")).startswith(b"%PDF")
        self.browser.emulate("clearDeviceMetricsOverride")
        self.browser.emulate("setEmulatedMedia", features=[])

    def test_stays_usable_with_a_hundred_thousand_rows(self):
        path = self.database("O_large.db", "03", THERMAL, last=99999, minutes=5, spike=60001)
        start = time.monotonic()
        self.report(path)
        look = self.browser.run(LOOK)
        assert time.monotonic() - start < DEADLINE
        self.compare(path, "Processor load", look, "Thermal", [kept("cpu_usage", "cpu_temp")],
                     "strftime('%Y-%m', local_time)")
        rows = next(lines[0] for title, _, lines, _ in look if title.startswith("Processor, graphics"))
        crowd = min(row for row, count in rows if count > 100)
        assert min(row for row, _ in rows) < crowd - 20, rows[:40]  # the one hot sample is drawn

    def test_fetched_nothing_and_complained_of_nothing(self):
        events = [json.loads(entry["message"])["message"] for entry in self.browser.log("performance")]
        urls = [event["params"]["request"]["url"] for event in events if event["method"] == "Network.requestWillBeSent"]
        urls = [url for url in urls if not url.startswith(("chrome:", "data:"))]  # the browser's own tab and pictures
        assert len(urls) >= 6 and all(url.startswith(self.folder.as_uri()) for url in urls), urls
        assert self.browser.log("browser") == []
        assert not select.select([self.canary], [], [], 0)[0]
        self.browser.call("POST", "/url", {"url": "about:blank"})
        self.browser.run("fetch(arguments[0], {mode: 'no-cors'})", self.lure)
        assert select.select([self.canary], [], [], DEADLINE)[0], "a request would not have been seen"


if __name__ == "__main__":
    ctypes.CDLL(None).prctl(36, 1)  # PR_SET_CHILD_SUBREAPER: the browser's orphans become children of this process
    sys.exit(cases.run("Report", cases.methods(Tests(pathlib.Path(sys.argv[1]).resolve(),
                                                     cases.fresh_folder("zorv-report-")))))
