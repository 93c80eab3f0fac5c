"""The batch on a local Dask cluster of two worker processes: its outputs are the tool's for the
same export and zone, bad exports fail alone, a worker killed midway leaves every output whole,
and a second run does no work."""

import json
import os
import pathlib
import signal
import subprocess
import threading
import time
import zipfile

import pytest

from conftest import NOW, SAMPLE, SAMPLE_ZONE, SOURCE

distributed = pytest.importorskip("distributed")
batch = pytest.importorskip("velk.batch")

EXPORTS = SOURCE.parent / "shared" / "testdata" / "exports"


@pytest.fixture(scope="module")
def cluster():
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None) as local:
        with distributed.Client(local) as client:
            yield client


def tool_output(*arguments):
    done = subprocess.run([os.environ["VELK_TOOL"], *arguments], capture_output=True, check=True)
    return done.stdout.decode("utf-8")


def hostile_exports(folder: pathlib.Path):
    """A zip cut in the middle of its export, and a file that is no export."""
    whole = folder / "whole.zip"
    with zipfile.ZipFile(whole, "w", zipfile.ZIP_DEFLATED) as archive:
        archive.write(SAMPLE, "apple_health_export/export.xml")
    data = whole.read_bytes()
    (folder / "truncated.zip").write_bytes(data[: len(data) // 2])
    whole.unlink()
    (folder / "route.xml").write_text("<gpx><trk/></gpx>\n", encoding="utf-8")
    return [(str(folder / "truncated.zip"), "truncated.zip"), (str(folder / "route.xml"), "route.xml")]


def test_outputs_equal_the_tool_and_bad_exports_fail_alone(cluster, tmp_path):
    good = batch.find_exports([str(EXPORTS)])
    assert len(good) == 3
    zones = {"exports/watch5-2020/export.xml": SAMPLE_ZONE,
             "exports/curated-2021/sampleexport.xml": "Europe/Berlin"}
    out = tmp_path / "out"
    rows = batch.run(good + hostile_exports(tmp_path), str(out), cluster, tz_map=zones, now=NOW,
                     progress=False)

    status = {row["label"]: row["status"] for row in rows}
    assert status == {label: "done" for _, label in good} | {"truncated.zip": "failed",
                                                             "route.xml": "failed"}
    failures = {entry["label"]: entry["message"]
                for entry in json.loads((out / "failures.json").read_text())}
    assert "route.xml is not an Apple Health export" in failures["route.xml"]
    assert "truncated.zip" in failures["truncated.zip"]

    for path, label in good:
        row = next(row for row in rows if row["label"] == label)
        record = json.loads((out / row["id"] / "import.json").read_text())
        assert record["label"] == label and record["days"] == row["days"] > 0
        if label in zones:
            assert record["zone"] == zones[label] and not record["inferred"]
        else:  # inferred from the export's own offsets
            assert record["inferred"] and record["zone"]
        days = (out / row["id"] / "documents.ndjson").read_text().splitlines()
        first, last = json.loads(days[0])["day"], json.loads(days[-1])["day"]
        common = ["--tz", record["zone"], "--now", NOW, "--language", "en", "--state",
                  str(tmp_path / f"{row['id']}.sqlite"), "--export", path]
        period = json.loads(tool_output(*common, "info"))["period"]  # the days with data
        assert (first, last) == (period["first_day"], period["last_day"])
        assert (out / row["id"] / "documents.ndjson").read_text() == tool_output(
            *common, "summary", "all", "--from", first, "--to", last)
        assert (out / row["id"] / "days.csv").read_bytes().decode() == tool_output(
            *common, "table", "all", "--from", first, "--to", last)
    summary = (out / "summary.csv").read_text().splitlines()
    assert summary[0] == ",".join(batch.SUMMARY_COLUMNS) and len(summary) == 6

    # A second run, the files renamed: nothing is done again.
    stamps = {file: file.stat().st_mtime_ns for file in out.rglob("*") if file.parent != out}
    renamed = tmp_path / "renamed"
    renamed.mkdir()
    for index, (path, _) in enumerate(good):
        (renamed / f"participant-{index}.xml").write_bytes(pathlib.Path(path).read_bytes())
    again = batch.run(batch.find_exports([str(renamed)]), str(out), cluster, tz_map=zones,
                      now=NOW, progress=False)
    assert [row["status"] for row in again] == ["skipped"] * 3
    assert stamps == {file: file.stat().st_mtime_ns for file in out.rglob("*")
                      if file.parent != out}


def test_a_worker_killed_during_a_task_leaves_every_output_whole(cluster, tmp_path):
    # Five years of days make each task last long enough to be killed in the middle.
    exports = []
    for index in range(3):
        copy = tmp_path / f"p{index}.xml"
        copy.write_bytes(SAMPLE.read_bytes() + f"<!-- {index} -->\n".encode())
        exports.append((str(copy), copy.name))
    out = tmp_path / "out"
    killed = []

    def kill_a_worker_midway():
        deadline = time.monotonic() + 60
        while time.monotonic() < deadline and not killed:
            if any(out.glob(".*.partial/documents.ndjson")):
                busy = [worker for worker, keys in cluster.processing().items() if keys]
                pids = cluster.run(os.getpid, workers=busy[:1])
                for pid in pids.values():
                    os.kill(pid, signal.SIGKILL)
                    killed.append(pid)
            time.sleep(0.02)

    killer = threading.Thread(target=kill_a_worker_midway)
    killer.start()
    rows = batch.run(exports, str(out), cluster, tz=SAMPLE_ZONE, first="2016-01-01",
                     last="2020-04-17", now=NOW, progress=False)
    killer.join()
    assert killed, "no task was seen midway"
    assert [row["status"] for row in rows] == ["done"] * 3
    assert not list(out.glob(".*"))
    for row in rows:
        folder = out / row["id"]
        assert sorted(file.name for file in folder.iterdir()) == [
            "days.csv", "documents.ndjson", "import.json"]
        lines = (folder / "documents.ndjson").read_text().splitlines()
        assert len(lines) == 3 * row["days"] and json.loads(lines[-1])["day"] == "2020-04-17"
