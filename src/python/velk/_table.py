"""The day table in Python: rows as dicts, and as a pandas DataFrame.

The rows come from the library's table exactly as ``velk table --format ndjson`` writes them; here
only their cells become Python values: days :class:`datetime.date`, times aware datetimes, whole
numbers int, flags bool, empty cells None.
"""

from __future__ import annotations

import datetime as _datetime
import json as _json
from typing import Any, Dict, Iterable, List, NamedTuple, Optional, Sequence, Union

from . import _velk


class Column(NamedTuple):
    """A column of the day table: its ``name``, ``unit`` ("s", "kcal", ...; "" for none) and
    ``type``: "date", "datetime", "integer", "flag" or "text"."""

    name: str
    unit: str
    type: str


def columns(kinds: Union[str, Iterable[str]] = ("all",)) -> List[Column]:
    """The columns of a table of ``kinds``, in order: those of ``velk table KINDS``."""
    names = [kinds] if isinstance(kinds, str) else list(kinds)
    return [Column(*column) for column in _velk.columns(names)]


def _cell(value: Any, column: Column, zone: _datetime.tzinfo) -> Any:
    if value is None:
        return None
    if column.type == "date":
        return _datetime.date.fromisoformat(value)
    if column.type == "datetime":
        return _datetime.datetime.fromisoformat(value).astimezone(zone)
    return value


def read_rows(ndjson: str, kinds: Sequence[str], zone: _datetime.tzinfo) -> List[Dict[str, Any]]:
    """The rows of the library's NDJSON table as dicts of Python values."""
    table_columns = columns(kinds)
    rows = []
    for line in ndjson.splitlines():
        cells = _json.loads(line)
        rows.append({column.name: _cell(cells[column.name], column, zone)
                     for column in table_columns})
    return rows


def to_pandas(rows: Sequence[Dict[str, Any]],
              kinds: Union[str, Iterable[str]] = ("all",)) -> Any:
    """The rows of :meth:`velk.Device.table` as a pandas DataFrame: one row per day, indexed by
    a DatetimeIndex of the days (named "date"); whole-number columns float64 with NaN for empty
    cells, flags "boolean", times datetime64 in the device's zone, text "string". The units are
    in ``frame.attrs["units"]``. ``kinds`` are those the rows were made with (default all).

    Needs pandas (Debian: python3-pandas), which the rest of the package does not."""
    try:
        import pandas as pd
    except ImportError as missing:
        raise ImportError("velk.to_pandas needs pandas (Debian: apt install python3-pandas)") \
            from missing
    table_columns = [column for column in columns(kinds)
                     if not rows or column.name in rows[0]]
    data: Dict[str, Any] = {}
    index: Optional[Any] = None
    for column in table_columns:
        values = [row[column.name] for row in rows]
        if column.type == "date":
            index = pd.DatetimeIndex(pd.to_datetime(values), name=column.name)
            continue
        if column.type == "integer":
            data[column.name] = pd.Series(
                [float("nan") if value is None else value for value in values], dtype="float64")
        elif column.type == "flag":
            data[column.name] = pd.Series(values, dtype="boolean")
        elif column.type == "datetime":
            zone = next((value.tzinfo for value in values if value is not None), None)
            moments = pd.to_datetime(values, utc=True)
            data[column.name] = pd.Series(moments.tz_convert(zone) if zone else moments)
        else:
            data[column.name] = pd.Series(values, dtype="string")
    frame = pd.DataFrame(data)
    frame.index = index if index is not None else pd.DatetimeIndex([], name="date")
    frame.attrs["units"] = {column.name: column.unit for column in table_columns if column.unit}
    return frame
