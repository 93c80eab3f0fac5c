"""A study's exports on a Dask cluster: ``python3 -m velk.batch EXPORT_OR_DIR... --out DIR``.

Each export is one task. A worker imports it into a database on its own disk, then writes the day
table (``days.csv``, the columns of ``velk table``), the documents of every day
(``documents.ndjson``, the lines of ``velk summary all --from --to``) and ``import.json`` (the
import's counts and warnings, the label, the time zone) into ``DIR/<export id>/``. The id is a
hash of the file's content, so a renamed file is not done twice. Outputs are written under a
temporary name and renamed when whole: a directory under its id is always complete, and a
second run skips it. A bad export fails only its own task (``DIR/failures.json``); a task whose
worker dies is retried. ``DIR/summary.csv`` has a row per export.

Without ``--scheduler`` the batch runs on a local cluster, one worker process per core; with it,
on the cluster of that scheduler (``dask scheduler`` and ``dask worker ADDRESS`` on the
machines, each with this package installed). See docs/scale-out.md.
"""

from __future__ import annotations

import argparse
import csv
import datetime as _datetime
import hashlib
import json
import os
import pathlib
import shutil
import sys
import tempfile
import time
import uuid
import xml.etree.ElementTree as ElementTree
import zipfile
from typing import Any, Dict, Iterator, List, Optional, Sequence, Tuple

#: How often Dask runs a task again whose worker died under it.
RETRIES = 2
#: Records whose date offsets are looked at when the time zone is inferred.
ZONE_SAMPLE_RECORDS = 20000
#: The columns of DIR/summary.csv.
SUMMARY_COLUMNS = ("id", "label", "status", "days", "samples", "warnings", "seconds", "zone")
_KINDS = ("sleep", "physical", "body")


# -- the exports ---------------------------------------------------------------------------------

def find_exports(inputs: Sequence[str]) -> List[Tuple[str, str]]:
    """(path, label) of every export named: a file as it is, a folder's .zip and .xml files
    (searched through its subfolders). The label is the file's name, or for a file found in a
    folder its path from that folder on, the folder's own name first ("study/p01/export.zip")."""
    found = []
    for given in inputs:
        path = pathlib.Path(given)
        if path.is_dir():
            for file in sorted(path.resolve().rglob("*")):
                if file.is_file() and file.suffix.lower() in (".zip", ".xml"):
                    found.append((str(file), str(file.relative_to(path.resolve().parent))))
        else:
            found.append((str(path), path.name))
    return found


def export_id(path: str) -> str:
    """The export's id: the first 16 hex digits of the SHA-256 of its bytes."""
    digest = hashlib.sha256()
    with open(path, "rb") as file:
        for block in iter(lambda: file.read(1 << 20), b""):
            digest.update(block)
    return digest.hexdigest()[:16]


# -- the time zone -------------------------------------------------------------------------------

def _export_xml(path: str):
    """The export's XML as a binary stream: the file, or the HealthData entry of a zip."""
    if zipfile.is_zipfile(path):
        archive = zipfile.ZipFile(path)
        names = [name for name in archive.namelist() if name.lower().endswith("export.xml")]
        if not names:
            raise ValueError("no export.xml in the archive")
        return archive.open(names[0])
    return open(path, "rb")


def _dated_offsets(path: str, limit: int) -> List[_datetime.datetime]:
    """The aware start dates of up to `limit` records, and the export's own date."""
    dates = []
    with _export_xml(path) as stream:
        for _, element in ElementTree.iterparse(stream, events=("end",)):
            text = element.get("startDate") if element.tag == "Record" else (
                element.get("value") if element.tag == "ExportDate" else None)
            if text:
                try:
                    dates.append(_datetime.datetime.strptime(text, "%Y-%m-%d %H:%M:%S %z"))
                except ValueError:
                    pass
            element.clear()
            if len(dates) >= limit:
                break
    return dates


def infer_zone(path: str) -> Dict[str, Any]:
    """A time zone for an export from its own dates: an IANA zone whose UTC offset on each
    sampled date is the one the export wrote (dates of up to ZONE_SAMPLE_RECORDS records and the
    export's date): of the zones named Area/City, the one that fits the most dates, the first in
    alphabetical order among equals (they give the same days on those dates); without a fit,
    UTC. Returns the zone and what it was inferred from."""
    import zoneinfo

    try:
        dates = _dated_offsets(path, ZONE_SAMPLE_RECORDS)
    except (OSError, ValueError, ElementTree.ParseError, zipfile.BadZipFile) as error:
        return {"zone": "UTC", "inferred": True, "from": f"nothing readable ({error})"}
    pairs = {(date.astimezone(_datetime.timezone.utc), date.utcoffset()) for date in dates}
    offsets: Dict[str, int] = {}
    for date in dates:
        key = date.strftime("%z")
        offsets[key] = offsets.get(key, 0) + 1
    best, fits = "UTC", 0
    for name in sorted(zoneinfo.available_timezones()):
        if "/" not in name or name.startswith(("Etc/", "SystemV/", "posix/", "right/")):
            continue
        zone = zoneinfo.ZoneInfo(name)
        fitting = sum(1 for moment, offset in pairs if moment.astimezone(zone).utcoffset() == offset)
        if fitting > fits:  # the first in alphabetical order of those that fit best
            best, fits = name, fitting
    return {"zone": best, "inferred": True,
            "from": f"{fits} of {len(pairs)} distinct dated offsets fit",
            "offsets": dict(sorted(offsets.items()))}


def zone_for(label: str, tz: Optional[str], tz_map: Optional[Dict[str, str]],
             path: str) -> Dict[str, Any]:
    """The participant's zone: --tz for all, the mapping's entry for the label, else inferred."""
    if tz:
        return {"zone": tz, "inferred": False}
    if tz_map is not None and label in tz_map:
        return {"zone": tz_map[label], "inferred": False}
    return infer_zone(path)


# -- one export ----------------------------------------------------------------------------------

def _days(summary: Dict[str, Any], zone: str, first: Optional[str],
          last: Optional[str]) -> Optional[Tuple[str, str]]:
    """The first and last day to write: the range asked for, else the days with data."""
    if first and last:
        return first, last
    import zoneinfo

    start, end = summary.get("earliest_sample_start"), summary.get("latest_sample_end")
    if start is None or end is None:
        return None
    local = zoneinfo.ZoneInfo(zone)
    return (first or start.astimezone(local).date().isoformat(),
            last or end.astimezone(local).date().isoformat())


def _write_outputs(folder: pathlib.Path, database: str, state: str, zone: str,
                   now: Optional[str], days: Optional[Tuple[str, str]]) -> int:
    """days.csv and documents.ndjson of the days; returns how many days were written."""
    from . import Device, _velk

    table_file = folder / "days.csv"
    documents_file = folder / "documents.ndjson"
    if days is None:
        table_file.write_text("", encoding="utf-8")
        documents_file.write_text("", encoding="utf-8")
        return 0
    with Device(db=database, tz=zone, now=now, language="en", state=state) as device:
        first, last = device._seconds(days[0], "from"), device._seconds(days[1], "to")
        with open(table_file, "w", encoding="utf-8", newline="") as out:
            out.write(device._native.table(first, last, 12, 0, ["all"], csv=True))
        moments = device._native.day_moments(first, last, 12, 0)
        reader = _velk.SummaryReader(device._native)
        try:
            with open(documents_file, "w", encoding="utf-8") as out:
                for moment in moments:
                    day = device._datetime(moment).date().isoformat()
                    for kind, text in zip(_KINDS, reader.day(list(_KINDS), moment)):
                        out.write('{"day":%s,"kind":"%s","document":%s}\n'
                                  % (json.dumps(day), kind, text))
        finally:
            reader.close()
    return len(moments)


def process_export(path: str, label: str, out: str, tz: Optional[str],
                   tz_map: Optional[Dict[str, str]], first: Optional[str], last: Optional[str],
                   now: Optional[str]) -> Dict[str, Any]:
    """One export's task: its outputs under OUT/<id>/, written whole or not at all. Returns a
    row of summary.csv (status "done" or "skipped"), or status "failed" with the message."""
    from . import Error, import_export

    began = time.monotonic()
    row: Dict[str, Any] = {"id": "", "label": label, "path": path}
    try:
        row["id"] = export_id(path)
        target = pathlib.Path(out) / row["id"]
        if target.is_dir():  # done before, perhaps under another name
            return dict(_row_of(target), label=label, path=path, status="skipped")
        work = pathlib.Path(out) / f".{row['id']}.{uuid.uuid4().hex}.partial"
        work.mkdir(parents=True)
        try:
            with tempfile.TemporaryDirectory(prefix="velk-batch-") as local:
                database = os.path.join(local, "health.sqlite")
                summary = import_export(path, database)
                zone = zone_for(label, tz, tz_map, path)
                written = _write_outputs(work, database, os.path.join(local, "state.sqlite"),
                                         zone["zone"], now,
                                         _days(summary, zone["zone"], first, last))
            summary.pop("database", None)
            for key in ("earliest_sample_start", "latest_sample_end"):
                if summary[key] is not None:
                    summary[key] = summary[key].isoformat()
            record = {"id": row["id"], "label": label, "path": path, "days": written,
                      "seconds": round(time.monotonic() - began, 3), **zone, "import": summary}
            (work / "import.json").write_text(json.dumps(record, indent=2, ensure_ascii=False),
                                              encoding="utf-8")
            try:
                os.rename(work, target)  # whole, or not there
            except OSError:
                if not target.is_dir():  # another try of this task won the race otherwise
                    raise
        finally:
            shutil.rmtree(work, ignore_errors=True)
        return dict(_row_of(target), status="done")
    except (Error, OSError, ValueError, KeyError) as error:  # KeyError: a zone nobody knows
        return dict(row, status="failed", message=f"{type(error).__name__}: {error}"
                    if not isinstance(error, Error) else str(error))


def _row_of(target: pathlib.Path) -> Dict[str, Any]:
    record = json.loads((target / "import.json").read_text(encoding="utf-8"))
    return {"id": record["id"], "label": record["label"], "path": record["path"],
            "days": record["days"], "samples": record["import"]["samples"],
            "warnings": len(record["import"]["warnings"]), "seconds": record["seconds"],
            "zone": record["zone"]}


# -- the batch -----------------------------------------------------------------------------------

def _write_whole(path: pathlib.Path, write) -> None:
    partial = path.with_name(path.name + ".partial")
    with open(partial, "w", encoding="utf-8", newline="") as out:
        write(out)
    os.replace(partial, path)


def _results(futures: Dict[Any, Tuple[str, str]]) -> Iterator[Tuple[Any, Dict[str, Any]]]:
    from distributed import as_completed

    for future in as_completed(list(futures)):
        path, label = futures[future]
        try:
            yield future, future.result()
        except Exception as error:  # the task's worker died too often, or Dask failed
            yield future, {"id": "", "label": label, "path": path, "status": "failed",
                           "message": f"{type(error).__name__}: {error}"}


def run(exports: Sequence[Tuple[str, str]], out: str, client, tz: Optional[str] = None,
        tz_map: Optional[Dict[str, str]] = None, first: Optional[str] = None,
        last: Optional[str] = None, now: Optional[str] = None,
        progress: bool = True) -> List[Dict[str, Any]]:
    """Runs one task per export on `client`'s cluster; writes DIR/summary.csv and
    DIR/failures.json and returns the rows, in the order of `exports`."""
    os.makedirs(out, exist_ok=True)
    futures = {}
    for path, label in exports:
        future = client.submit(process_export, os.path.abspath(path), label,
                               os.path.abspath(out), tz, tz_map, first, last, now,
                               key=f"velk-export-{uuid.uuid4().hex}", retries=RETRIES, pure=False)
        futures[future] = (path, label)
    if progress:
        from distributed import progress as progress_bar
        progress_bar(list(futures))
        print(file=sys.stderr)
    finished = dict(_results(futures))
    rows = [finished[future] for future in futures]
    # What workers that died midway left; complete outputs are never named so.
    for partial in pathlib.Path(out).glob(".*.partial"):
        shutil.rmtree(partial, ignore_errors=True)
    _write_whole(pathlib.Path(out) / "summary.csv", lambda file: _write_summary(file, rows))
    failures = [{key: row[key] for key in ("label", "path", "message")}
                for row in rows if row["status"] == "failed"]
    _write_whole(pathlib.Path(out) / "failures.json",
                 lambda file: json.dump(failures, file, indent=2, ensure_ascii=False))
    return rows


def _write_summary(file, rows: List[Dict[str, Any]]) -> None:
    writer = csv.DictWriter(file, SUMMARY_COLUMNS, extrasaction="ignore")
    writer.writeheader()
    writer.writerows(rows)


def main(argv: Optional[Sequence[str]] = None) -> int:
    parser = argparse.ArgumentParser(
        prog="python3 -m velk.batch",
        description="Many exports' day tables and documents on a Dask cluster.")
    parser.add_argument("exports", nargs="+", metavar="EXPORT_OR_DIR",
                        help="export.zip or export.xml files, or folders holding them")
    parser.add_argument("--out", required=True, metavar="DIR", help="where the outputs go")
    parser.add_argument("--scheduler", metavar="ADDRESS",
                        help="a running Dask scheduler (default: a local cluster)")
    zones = parser.add_mutually_exclusive_group()
    zones.add_argument("--tz", metavar="ZONE", help="the time zone of every participant")
    zones.add_argument("--tz-map", metavar="FILE",
                       help="a JSON object from label to time zone (others are inferred)")
    parser.add_argument("--from", dest="first", metavar="DATE", help="first day (default: the "
                        "first day with data)")
    parser.add_argument("--to", dest="last", metavar="DATE", help="last day (default: the last "
                        "day with data)")
    parser.add_argument("--now", metavar="INSTANT",
                        help="a fixed clock for the documents (default: the system clock)")
    parser.add_argument("--workers", type=int, default=os.cpu_count() or 1,
                        help="worker processes of the local cluster (default: one per core)")
    options = parser.parse_args(argv)
    exports = find_exports(options.exports)
    if not exports:
        parser.error("no export found in " + ", ".join(options.exports))
    labels = [label for _, label in exports]
    if len(set(labels)) != len(labels):
        parser.error("two exports have the same label (file name): give them folders of their own")
    tz_map = None
    if options.tz_map:
        try:
            tz_map = json.loads(pathlib.Path(options.tz_map).read_text(encoding="utf-8"))
        except (OSError, ValueError) as error:
            parser.error(f"--tz-map {options.tz_map}: {error}")
        if not isinstance(tz_map, dict):
            parser.error(f"--tz-map {options.tz_map}: not a JSON object of label to zone")

    from distributed import Client, LocalCluster

    if options.scheduler:
        client = Client(options.scheduler)
        cluster = None
    else:
        cluster = LocalCluster(n_workers=options.workers, threads_per_worker=1, processes=True,
                               dashboard_address=None)
        client = Client(cluster)
    try:
        rows = run(exports, options.out, client, options.tz, tz_map, options.first,
                   options.last, options.now, progress=sys.stderr.isatty())
    finally:
        client.close()
        if cluster is not None:
            cluster.close()
    failed = [row for row in rows if row["status"] == "failed"]
    done = sum(1 for row in rows if row["status"] == "done")
    print(f"velk.batch: {done} done, {len(rows) - done - len(failed)} skipped, {len(failed)} "
          f"failed; see {os.path.join(options.out, 'summary.csv')}", file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
