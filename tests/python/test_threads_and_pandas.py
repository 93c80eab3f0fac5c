"""Several Python threads on one device get the answers one thread gets; the day table as a
pandas DataFrame has the table's shape, a DatetimeIndex, proper dtypes and NaN where empty."""

import concurrent.futures
import datetime
import logging

import pytest

import velk


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
    sleep_only = velk.to_pandas(sample_device.table("2020-04-09", "2020-04-10", kinds="sleep"), "sleep")
    assert list(sleep_only.columns) == [column.name for column in velk.columns("sleep")][1:]
    assert str(sleep_only["sleep_start"].dtype).startswith("datetime64[ns, ")
    assert velk.to_pandas([]).shape == (0, len(velk.columns()) - 1)
