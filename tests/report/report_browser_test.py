#!/usr/bin/env python3
"""The report in a real browser: headless Chromium opens the report of the bundled sample export.

Fails on any console error, uncaught exception or request that leaves the page; checks that every
chart drew (its canvas holds pixels, and pixels of each series' colour where the series has data),
and that the numbers the page shows for one day, on hover and in the screen-reader tables, are
those of `velk table` for that day. Saves a screenshot of the whole page.

Chromium is driven through its DevTools protocol over a pipe (--remote-debugging-pipe): no port,
no display, nothing but Python's standard library.

    report_browser_test.py --velk build/release/src/cli/velk --screenshot docs/report.png
    report_browser_test.py --velk ... --export E --tz Z --from D --to D [--day D]   (other data)
"""

import argparse
import base64
import csv
import io
import json
import os
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
TIMEOUT = 60  # seconds for any one answer of the browser
WIDTH, HEIGHT = 1100, 900  # the window, in CSS pixels

# What each chart's series show, by the table's columns; a duration shows hours and minutes.
SERIES = {
    "sleep": {"Deep": ["deep_seconds"], "Core (light)": ["light_seconds"], "REM": ["rem_seconds"],
              "Awake": ["awake_seconds"], "In bed": ["in_bed_seconds"]},
    "steps": {"Steps": ["steps"]},
    "energy": {"Active energy": ["active_kcal"], "Basal energy": ["basal_kcal"]},
    "heart": {"Minimum–maximum": ["hr_min_bpm", "hr_max_bpm"], "Average": ["hr_avg_bpm"],
              "Resting": ["hr_resting_bpm"]},
    "hrv": {"HRV (SDNN)": ["hrv_sdnn_ms"]},
    "weight": {"Weight": ["weight_kg"]},
}
# The stage the night's sleep holds beyond the named ones is the report's own difference.
DERIVED = {"Asleep, stage not recorded"}


class Browser:
    """Headless Chromium and one page, spoken to over the DevTools pipe."""

    def __init__(self, profile):
        chromium = shutil.which("chromium") or shutil.which("chromium-browser")
        if chromium is None:
            sys.exit("chromium is not installed (scripts/bootstrap installs it)")
        to_browser, self._commands = os.pipe()
        self._answers, from_browser = os.pipe()
        flags = ["--headless", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--disable-extensions", "--mute-audio", "--hide-scrollbars",
                 "--user-data-dir=" + str(profile), "--remote-debugging-pipe", "about:blank"]
        if os.geteuid() == 0:
            flags.insert(1, "--no-sandbox")  # Chromium refuses to run as root with its sandbox
        # The protocol reads commands on descriptor 3 and writes answers on descriptor 4.
        self._process = subprocess.Popen(
            ["sh", "-c", 'exec "$0" "$@" 3<&%d 4>&%d' % (to_browser, from_browser), chromium]
            + flags, pass_fds=(to_browser, from_browser), stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self._buffer = b""
        self._next_id = 0
        self.events = []
        target = self.call("Target.createTarget", {"url": "about:blank"}, session=None)
        self._session = self.call("Target.attachToTarget",
                                  {"targetId": target["targetId"], "flatten": True},
                                  session=None)["sessionId"]

    def close(self):
        try:
            self.call("Browser.close", session=None)
        except Exception:  # noqa: BLE001  (closing a browser that already went)
            pass
        try:
            self._process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        os.close(self._commands)
        os.close(self._answers)

    def _message(self, deadline):
        while b"\0" not in self._buffer:
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([self._answers], [], [], left)[0]:
                raise TimeoutError("the browser gave no answer in time")
            chunk = os.read(self._answers, 1 << 20)
            if not chunk:
                raise ConnectionError("the browser closed the pipe")
            self._buffer += chunk
        text, self._buffer = self._buffer.split(b"\0", 1)
        return json.loads(text)

    def call(self, method, params=None, session="page"):
        self._next_id += 1
        message = {"id": self._next_id, "method": method, "params": params or {}}
        if session:
            message["sessionId"] = self._session
        os.write(self._commands, json.dumps(message).encode() + b"\0")
        deadline = time.monotonic() + TIMEOUT
        while True:
            answer = self._message(deadline)
            if answer.get("id") == self._next_id:
                if "error" in answer:
                    raise RuntimeError("%s: %s" % (method, answer["error"]))
                return answer["result"]
            if "method" in answer:
                self.events.append(answer)

    def wait_for(self, method):
        deadline = time.monotonic() + TIMEOUT
        while not any(event["method"] == method for event in self.events):
            self.events.append(self._message(deadline))

    def evaluate(self, expression):
        result = self.call("Runtime.evaluate", {"expression": expression, "returnByValue": True,
                                                "awaitPromise": True})
        if "exceptionDetails" in result:
            raise RuntimeError("page script failed: %s" % result["exceptionDetails"])
        return result["result"].get("value")


def run_velk(velk, source, arguments):
    done = subprocess.run([velk] + source + arguments, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit("velk %s failed (%d): %s" % (" ".join(arguments), done.returncode, done.stderr))
    return done.stdout


def numbers(text):
    """The whole numbers in a shown value: "1,234 kcal" -> [1234], "7 h 05 min" -> [7, 5]."""
    return [int(n) for n in re.findall(r"\d+", text.replace(",", ""))]


def expected_numbers(row, columns):
    """What the page must show for the table's cells, or None where the table is empty."""
    if any(row[c] == "" for c in columns):
        return None
    values = [int(row[c]) for c in columns]
    if columns[0].endswith("_seconds"):
        return list(divmod(values[0] // 60, 60))
    return values


PAGE_CHECKS = r"""
(() => {
  const parse = (color) => [1, 3, 5].map((i) => parseInt(color.slice(i, i + 2), 16));
  const result = {};
  for (const figure of document.querySelectorAll("figure")) {
    const canvas = figure.querySelector("canvas");
    const chart = Chart.getChart(canvas);
    const pixels = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data;
    let drawn = 0;
    const colours = chart.data.datasets.map((dataset) => ({
      label: dataset.label, rgb: parse(dataset.borderColor), hasData: dataset.data.some((v) => v !== null),
      pixels: 0 }));
    for (let i = 0; i < pixels.length; i += 4) {
      if (pixels[i + 3] === 0) continue;
      drawn++;
      for (const colour of colours) {
        if (pixels[i + 3] > 200 && Math.abs(pixels[i] - colour.rgb[0]) < 6 &&
            Math.abs(pixels[i + 1] - colour.rgb[1]) < 6 && Math.abs(pixels[i + 2] - colour.rgb[2]) < 6) {
          colour.pixels++;
        }
      }
    }
    result[figure.id.replace("chart-", "")] = { drawn: drawn, series: colours };
  }
  return result;
})()
"""

HOVER_POINT = r"""
((id, day) => {
  const canvas = document.querySelector("#chart-" + id + " canvas");
  canvas.scrollIntoView({ block: "center" });
  const chart = Chart.getChart(canvas);
  const index = chart.data.labels.indexOf(day);
  const x = chart.getDatasetMeta(0).data[index].x;
  const box = canvas.getBoundingClientRect();
  return { x: box.left + x, y: box.top + (chart.chartArea.top + chart.chartArea.bottom) / 2 };
})(%s, %s)
"""

SHOWN = r"""
new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(() => {
  const canvas = document.querySelector("#chart-" + %s + " canvas");
  const tooltip = Chart.getChart(canvas).tooltip;
  const cells = [...canvas.querySelectorAll("tr")].find((tr) => tr.dataset.day === %s).cells;
  const heads = [...canvas.querySelectorAll("thead th")].map((th) => th.textContent);
  done({
    title: tooltip.opacity > 0 ? tooltip.title : [],
    lines: tooltip.opacity > 0 ? tooltip.body.flatMap((b) => b.lines) : [],
    table: heads.slice(1).map((head, i) => [head, cells[i + 1].textContent]),
  });
})))
"""


# Two frames later, what the page changed before has been drawn.
NEXT_FRAMES = "new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)))"

# Pixels per day of the narrowest chart: a day must own a few pixels to be hovered.
DAY_WIDTH = r"""
Math.min(...[...document.querySelectorAll("canvas")].map((canvas) => {
  const chart = Chart.getChart(canvas);
  return (chart.chartArea.right - chart.chartArea.left) / chart.data.labels.length;
}))
"""

# Lets the charts grow with the window, and waits until every chart has been redrawn at least
# `width` CSS pixels wide.
WIDEN = r"""
new Promise((done) => {
  document.querySelector("main").style.maxWidth = "none";
  const charts = [...document.querySelectorAll("canvas")].map((canvas) => Chart.getChart(canvas));
  const wide = () => charts.every((chart) => chart.width >= %d);
  const check = () => (wide() ? done(true) : requestAnimationFrame(check));
  check();
})
"""

MIN_DAY_WIDTH = 4  # CSS pixels per day for hovering


def widen_for_hover(browser, width, height):
    """Makes every day of a long range wide enough to be hovered, by widening the window."""
    day_width = browser.evaluate(DAY_WIDTH)
    if day_width >= MIN_DAY_WIDTH:
        return
    wider = int(width * MIN_DAY_WIDTH / day_width) + 200
    browser.call("Emulation.setDeviceMetricsOverride",
                 {"width": wider, "height": height, "deviceScaleFactor": 1, "mobile": False})
    browser.evaluate(WIDEN % (wider - 300))


def check_day(browser, day, row, failures):
    for chart, series in SERIES.items():
        point = browser.evaluate(HOVER_POINT % (json.dumps(chart), json.dumps(day)))
        browser.call("Input.dispatchMouseEvent",
                     {"type": "mouseMoved", "x": point["x"], "y": point["y"]})
        shown = browser.evaluate(SHOWN % (json.dumps(chart), json.dumps(day)))
        on_hover = dict(line.partition(": ")[::2] for line in shown["lines"])  # label: value
        in_table = {label: value for label, value in shown["table"] if value}
        if any(expected_numbers(row, columns) for columns in series.values()):
            if shown["title"] != [day]:
                failures.append("%s: hovering %s shows %s" % (chart, day, shown["title"]))
        for label, columns in series.items():
            want = expected_numbers(row, columns)
            for where, values in (("tooltip", on_hover), ("table", in_table)):
                got = numbers(values[label]) if label in values else None
                if got != want:
                    failures.append("%s %s %s on %s: shown %s, the table has %s" %
                                    (chart, where, label, day, got, want))
        for where, values in (("tooltip", on_hover), ("table", in_table)):
            unknown = set(values) - set(series) - DERIVED
            if unknown:
                failures.append("%s %s shows series the test does not know: %s" %
                                (chart, where, sorted(unknown)))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--velk", required=True)
    parser.add_argument("--export", default=str(SOURCE / "data/sample/watch5-2020/export.xml"))
    parser.add_argument("--db")
    parser.add_argument("--tz", default="Africa/Johannesburg")
    parser.add_argument("--from", dest="first", default="2020-04-09")
    parser.add_argument("--to", dest="last", default="2020-04-18")
    parser.add_argument("--day", default="2020-04-11", help="the day whose numbers are compared")
    parser.add_argument("--screenshot", help="where to save a PNG of the whole page")
    options = parser.parse_args()

    failures = []
    with tempfile.TemporaryDirectory(prefix="velk-report-") as folder:
        folder = Path(folder)
        source = ["--db", options.db] if options.db else ["--export", options.export]
        source += ["--tz", options.tz, "--state", str(folder / "state.sqlite")]
        page = folder / "report.html"
        span = ["--from", options.first, "--to", options.last]
        run_velk(options.velk, source, ["report"] + span + ["-o", str(page)])
        table = list(csv.DictReader(io.StringIO(
            run_velk(options.velk, source, ["table", "all"] + span), newline="")))
        row = next(r for r in table if r["date"] == options.day)

        browser = Browser(folder / "profile")
        try:
            for domain in ("Page", "Runtime", "Log", "Network", "Performance"):
                browser.call(domain + ".enable")
            browser.call("Emulation.setDeviceMetricsOverride",
                         {"width": WIDTH, "height": HEIGHT, "deviceScaleFactor": 1,
                          "mobile": False})
            started = time.monotonic()
            browser.call("Page.navigate", {"url": page.as_uri()})
            browser.wait_for("Page.loadEventFired")
            opened = time.monotonic() - started
            if browser.evaluate("document.body.dataset.ready") != "true":
                failures.append("the page's script did not finish")
            drawn_after = browser.evaluate("document.body.dataset.drawnAfterMs")
            # The CPU time of the page's main thread is what opening the page costs; the wall
            # times also hold what else the machine did meanwhile.
            metrics = {m["name"]: m["value"]
                       for m in browser.call("Performance.getMetrics")["metrics"]}
            print("report: %d bytes, %d days; charts drawn %s ms after navigation started, load "
                  "event after %.0f ms; main thread CPU %.0f ms" %
                  (page.stat().st_size, len(table), drawn_after, opened * 1000,
                   metrics["ThreadTime"] * 1000))

            charts = browser.evaluate(PAGE_CHECKS)
            if sorted(charts) != sorted(SERIES):
                failures.append("charts on the page: %s" % sorted(charts))
            for chart, drawing in charts.items():
                if drawing["drawn"] == 0:
                    failures.append("%s: the canvas is blank" % chart)
                for series in drawing["series"]:
                    if series["hasData"] and series["pixels"] == 0:
                        failures.append("%s: %s has data but none of its colour was drawn" %
                                        (chart, series["label"]))
            # The picture first, before hovering leaves a tooltip on it.
            if options.screenshot:
                browser.evaluate("window.scrollTo(0, 0)")
                height = browser.evaluate("document.documentElement.scrollHeight")
                browser.call("Emulation.setDeviceMetricsOverride",
                             {"width": WIDTH, "height": height, "deviceScaleFactor": 1,
                              "mobile": False})
                browser.evaluate(NEXT_FRAMES)
                shot = browser.call("Page.captureScreenshot", {"format": "png"})
                Path(options.screenshot).write_bytes(base64.b64decode(shot["data"]))
                print("screenshot:", options.screenshot)
            widen_for_hover(browser, WIDTH, HEIGHT)
            check_day(browser, options.day, row, failures)
        finally:
            browser.close()

        for event in browser.events:
            method, params = event["method"], event.get("params", {})
            if method == "Runtime.consoleAPICalled" and params["type"] in ("error", "assert"):
                failures.append("console error: %s" % [a.get("value", a.get("description"))
                                                      for a in params["args"]])
            elif method == "Runtime.exceptionThrown":
                failures.append("uncaught exception: %s" % params["exceptionDetails"])
            elif method == "Log.entryAdded" and params["entry"]["level"] == "error":
                failures.append("browser error: %s" % params["entry"]["text"])
            elif method == "Network.requestWillBeSent" and params["request"]["url"] != page.as_uri():
                failures.append("a request left the page: %s" % params["request"]["url"])
            elif method == "Network.loadingFailed":
                failures.append("a request failed: %s" % params)

    for failure in failures:
        print("FAIL:", failure)
    if failures:
        sys.exit(1)
    print("the report drew every chart and shows the table's numbers for %s" % options.day)


if __name__ == "__main__":
    main()
