#!/usr/bin/env python3
"""`velk table` as a data person reads it: Python's csv module reads the CSV back to the values
of the NDJSON rows, whatever the locale, with one header row and CRLF record ends.

    table_csv_test.py --velk build/release/src/cli/velk
"""

import argparse
import csv
import io
import json
import os
import subprocess
import sys
import tempfile
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--velk", required=True)
    options = parser.parse_args()

    # A German locale, where a careless writer would print 1.234,5.
    environment = dict(os.environ, LANG="de_DE.UTF-8", LC_ALL="de_DE.UTF-8")
    with tempfile.TemporaryDirectory(prefix="velk-table-") as folder:
        def table(form):
            done = subprocess.run(
                [options.velk, "--export", str(SOURCE / "data/sample/watch5-2020/export.xml"),
                 "--tz", "Africa/Johannesburg", "--language", "de",
                 "--state", str(Path(folder) / "state.sqlite"), "table", "all",
                 "--from", "2020-04-09", "--to", "2020-04-18", "--format", form],
                capture_output=True, env=environment, check=False)
            if done.returncode != 0:
                sys.exit("velk table failed (%d): %s" % (done.returncode, done.stderr.decode()))
            return done.stdout.decode("utf-8")

        text = table("csv")
        rows = [json.loads(line) for line in table("ndjson").splitlines()]

    failures = []
    records = text.split("\r\n")
    if records[-1] != "" or any("\n" in record for record in records):
        failures.append("records do not all end in CRLF")
    read = list(csv.reader(io.StringIO(text, newline=""), strict=True))
    if read[0] != list(rows[0]):
        failures.append("header %s, NDJSON keys %s" % (read[0], list(rows[0])))
    if len(read) - 1 != len(rows) or len(rows) != 10:
        failures.append("%d CSV records, %d NDJSON rows, 10 days" % (len(read) - 1, len(rows)))

    def as_text(value):
        if value is None:
            return ""
        if isinstance(value, bool):
            return "true" if value else "false"
        return str(value)

    filled = 0
    for record, row in zip(read[1:], rows):
        for name, field in zip(read[0], record):
            if field != as_text(row[name]):
                failures.append("%s %s: CSV %r, NDJSON %r" % (row["date"], name, field, row[name]))
            if isinstance(row[name], int) and not isinstance(row[name], bool):
                filled += 1
    if filled < 50:  # steps, energy, heart rate, HRV and age of the export's days
        failures.append("only %d numbers in the table" % filled)

    for failure in failures:
        print("FAIL:", failure)
    if failures:
        sys.exit(1)
    print("the CSV reads back to the NDJSON rows: %d days, %d numbers" % (len(rows), filled))


if __name__ == "__main__":
    main()
