#!/usr/bin/env python3
"""Plots steps and sleep per day of an Apple Health export into a PNG, with the velk package and
matplotlib.

    plot_days.py EXPORT TIME_ZONE FIRST_DAY LAST_DAY OUTPUT.png
    plot_days.py data/sample/watch5-2020/export.xml Africa/Johannesburg 2020-04-09 2020-04-18 days.png

Run it with the package on the path: PYTHONPATH=build/release/python (or after cmake --install).
"""

import sys

import matplotlib

matplotlib.use("Agg")  # draws into files, no display needed
import matplotlib.pyplot as plt  # noqa: E402

import velk  # noqa: E402


def main():
    if len(sys.argv) != 6:
        sys.exit("usage: plot_days.py EXPORT TIME_ZONE FIRST_DAY LAST_DAY OUTPUT.png")
    export, zone, first, last, output = sys.argv[1:]
    with velk.Device(export=export, tz=zone) as device:
        frame = device.frame(first, last, kinds=["sleep", "physical"])

    figure, (steps, sleep) = plt.subplots(2, 1, sharex=True, figsize=(8, 5))
    steps.bar(frame.index, frame["steps"].fillna(0), color="tab:green")
    steps.set_ylabel("steps")
    sleep.bar(frame.index, (frame["sleep_seconds"] / 3600).fillna(0), color="tab:blue")
    sleep.set_ylabel("sleep (hours)")
    figure.suptitle(f"{first} to {last} ({zone})")
    figure.autofmt_xdate()
    figure.savefig(output, dpi=100)
    print(f"plot_days.py: wrote {output} ({len(frame)} days, "
          f"{int(frame['steps'].sum())} steps, {int(frame['sleep_seconds'].sum())} s of sleep)")


if __name__ == "__main__":
    main()
