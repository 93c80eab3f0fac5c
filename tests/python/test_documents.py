"""The documents and rows of the package are those of the velk tool, for the bundled sample
export, over a range of days; an import gives the same as reading the export directly; several
Python threads on one device get the answers one thread gets; and the day table as a pandas
DataFrame has the table's shape, a DatetimeIndex, proper dtypes and NaN where empty."""

import concurrent.futures
import datetime
import logging
import os

import pytest

import velk
from conftest import NOW, SAMPLE, SAMPLE_ZONE, write_store


def test_summaries_over_a_range_equal_the_tools(sample_device, tool):
    expected = tool("--export", str(SAMPLE), "--tz", SAMPLE_ZONE, "--now", NOW, "summary", "all",
                    "--from", "2020-04-09", "--to", "2020-04-18", "--bare")
    documents = sample_device.summaries("all", datetime.date(2020, 4, 9), "2020-04-18")
    assert not isinstance(documents, list)  # a generator: one day at a time
    documents = list(documents)
    assert len(documents) == 30
    assert documents == expected


def test_summary_of_one_day_in_any_date_form(sample_device, tool):
    expected = tool("--export", str(SAMPLE), "--tz", SAMPLE_ZONE, "--now", NOW, "summary",
                    "physical", "--date", "2020-04-13T12:00")
    zone = sample_device.instant("2020-04-13").tzinfo
    for date in ("2020-04-13T12:00", "2020-04-13T10:00:00Z", datetime.datetime(2020, 4, 13, 12),
                 datetime.datetime(2020, 4, 13, 12, tzinfo=zone)):
        assert sample_device.summary("physical", date) == expected[0], date


def test_table_rows_equal_the_tools_with_python_values(sample_device, tool):
    expected = tool("--export", str(SAMPLE), "--tz", SAMPLE_ZONE, "--now", NOW, "table", "all",
                    "--from", "2020-04-09", "--to", "2020-04-18", "--format", "ndjson")
    rows = sample_device.table("2020-04-09", "2020-04-18")
    assert [list(row) for row in rows] == [list(row) for row in expected]
    assert [column.name for column in velk.columns()] == list(rows[0])
    assert rows[4]["date"] == datetime.date(2020, 4, 13)  # a date, not its text
    for row, text_row in zip(rows, expected):
        for name, value in row.items():
            if isinstance(value, datetime.date):
                assert value.isoformat() == text_row[name]
            else:
                assert value == text_row[name], name


def test_import_then_database_gives_the_same_documents(sample_device, tmp_path):
    reports = []
    report = velk.import_export(SAMPLE, tmp_path / "health.db",
                                progress=lambda done, total: reports.append((done, total)))
    assert reports and reports[-1][0] == report["xml_bytes"] == os.path.getsize(SAMPLE)
    assert report["earliest_sample_start"].tzinfo == datetime.timezone.utc
    with velk.Device(db=tmp_path / "health.db", tz=SAMPLE_ZONE, language="en", now=NOW,
                     state=tmp_path / "state.sqlite") as imported:
        assert imported.table("2020-04-09", "2020-04-18") == \
            sample_device.table("2020-04-09", "2020-04-18")
        # Extraction moves the stored dates, which come back as aware local datetimes.
        dates = imported.last_extraction_dates()
        assert dates["physical"] == datetime.datetime(2020, 4, 18, 12, tzinfo=dates["physical"].tzinfo)
        assert dates["physical"].utcoffset() == datetime.timedelta(hours=2)
        assert imported.request_permissions("body") is True


def test_four_threads_on_one_device_answer_as_one(sample_device):
    days = [datetime.date(2020, 4, day) for day in range(9, 19)]

    def ask(day):
        return [sample_device.summary(kind, day) for kind in ("sleep", "physical", "body")]

    alone = [ask(day) for day in days]
    with concurrent.futures.ThreadPoolExecutor(max_workers=4) as pool:
        together = list(pool.map(ask, days * 2))
        tables = list(pool.map(lambda _: sample_device.table("2020-04-09", "2020-04-18"), range(4)))
    assert together == alone * 2
    assert all(table == tables[0] for table in tables)


def test_frame_has_the_tables_shape_index_and_dtypes(sample_device, caplog):
    pandas = pytest.importorskip("pandas")
    with caplog.at_level(logging.DEBUG, logger="velk"):
        rows = sample_device.table("2020-04-09", "2020-04-18")
    # The library's debug output (a day without samples of a kind) goes to logging, not stderr.
    assert "Any sample was found for the data type" in caplog.text
    frame = sample_device.frame("2020-04-09", "2020-04-18")
    assert frame.shape == (10, len(velk.columns()) - 1)  # the date became the index
    assert isinstance(frame.index, pandas.DatetimeIndex)
    assert frame.index.name == "date"
    assert list(frame.index.date) == [row["date"] for row in rows]
    assert frame["steps"].dtype == "float64"
    assert frame.loc["2020-04-13", "steps"] == 755
    assert pandas.isna(frame.loc["2020-04-09", "steps"])  # before the watch's first day
    assert frame["sleep_seconds"].isna().all()  # the export holds no sleep
    assert frame["has_physical"].dtype == "boolean"
    assert str(frame["sources"].dtype) == "string"
    assert frame.attrs["units"]["steps"] == "steps"
    assert velk.to_pandas([]).shape == (0, len(velk.columns()) - 1)


def test_times_are_aware_local_datetimes_in_rows_and_frames(tmp_path):
    pandas = pytest.importorskip("pandas")
    night = {"type": "HKCategoryTypeIdentifierSleepAnalysis", "start": "2024-03-09T23:00:00Z",
             "end": "2024-03-10T06:00:00Z", "value": 3}
    with velk.Device(store=write_store(tmp_path / "night.json", {"samples": [night]}),
                     tz="Europe/Berlin", now="2024-03-11T12:00", state=tmp_path / "s") as device:
        rows = device.table("2024-03-10", "2024-03-10", kinds="sleep")
    start = rows[0]["sleep_start"]
    assert start == datetime.datetime(2024, 3, 9, 23, tzinfo=datetime.timezone.utc)
    assert start.utcoffset() == datetime.timedelta(hours=1)  # local, in the device's zone
    frame = velk.to_pandas(rows, "sleep")
    assert list(frame.columns) == [column.name for column in velk.columns("sleep")][1:]
    assert frame.loc["2024-03-10", "sleep_start"] == pandas.Timestamp(start)
    assert str(frame["sleep_start"].dtype) == "datetime64[ns, Europe/Berlin]"
