"""velk: daily sleep, physical and body summaries from Apple Health exports, in Python.

The package binds the VelkAppleHealth library: the same documents and day table as the ``velk``
tool, from the same data sources (an ``export.zip`` or its XML, a database made by
:func:`import_export` or ``velk import``, a JSON store file)::

    import velk

    with velk.Device(export="export.zip", tz="Europe/Berlin") as device:
        sleep = device.summary("sleep", "2024-03-10")          # a dict, as `velk summary` prints
        for document in device.summaries("all", "2024-03-01", "2024-03-31"):
            ...
        frame = device.frame("2024-03-01", "2024-03-31")       # a pandas DataFrame, one row a day

Dates are accepted as :class:`datetime.date`, :class:`datetime.datetime` (aware, or naive meaning
the device's zone) or ISO 8601 text; dates returned are aware datetimes in the device's zone.
Errors raise :class:`velk.Error` and its subclasses. The library runs without the GIL; a device
may be used from several threads (their calls run one at a time).
"""

from __future__ import annotations

import datetime as _datetime
import json as _json
import os as _os
from typing import Any, Callable, Dict, Iterable, Iterator, List, Optional, Sequence, Union

from . import _velk
from ._errors import (AppleHealthError, DeviceClosedError, Error, ExtractionError,
                      HealthStoreError, InputError, TableError, bad_argument as _bad_argument)
from ._table import Column, columns, to_pandas
from ._table import read_rows as _read_rows

__all__ = [
    "Device", "import_export", "to_pandas", "columns", "Column", "DateLike",
    "Error", "AppleHealthError", "ExtractionError", "HealthStoreError", "InputError",
    "TableError", "DeviceClosedError",
]

#: What the date arguments accept.
DateLike = Union[_datetime.date, _datetime.datetime, str]
_PathLike = Union[str, "_os.PathLike[str]"]

_KINDS = ("sleep", "physical", "body")


def _path(value: Optional[_PathLike]) -> Optional[str]:
    return None if value is None else _os.fspath(value)


def _instant_text(value: DateLike, argument: str) -> str:
    """The moment as text in the forms the library reads (``velk``'s INSTANT)."""
    if isinstance(value, str):
        return value
    if isinstance(value, _datetime.datetime):
        return value.isoformat(timespec="milliseconds")
    if isinstance(value, _datetime.date):
        return value.isoformat()
    raise _bad_argument(f"{argument}: expected a datetime.date, a datetime.datetime or ISO 8601 "
                        f"text, not {type(value).__name__}")


def _kind_names(kinds: Union[str, Iterable[str]]) -> List[str]:
    return [kinds] if isinstance(kinds, str) else list(kinds)


class Device:
    """The device the library runs on: its data, time zone, language, clock and state.

    Arguments have the defaults and meanings of the ``velk`` tool's global options:

    - ``tz``: the time zone (IANA name) in which days begin and end; default the system's.
    - ``language``: the first preferred language (BCP 47); default from ``LANG``, else "en".
    - ``now``: a fixed clock, a date or ISO 8601 moment; default the system clock.
    - ``os_version``: the phone's OS version, "17.0" or "15.4.1"; before 16 sleep stages are
      not read.
    - ``state``: the user-defaults database that keeps the last extraction dates; default
      ``$XDG_STATE_HOME/velk/defaults.sqlite`` (else ``~/.local/state/velk/``).
    - ``store``, ``export``, ``db``: the data, at most one: a JSON store file, an export
      (``export.zip`` or its XML, read into memory), or a database made by :func:`import_export`.
      None of them: an empty store.
    - ``sources``: with ``export``, a JSON file mapping source names to bundle identifiers.
    - ``source_priority``: bundle identifiers whose overlapping samples are trusted first in day
      sums, most trusted first (a list, or one comma-separated text).

    A bad option raises :class:`InputError` naming it. Damage found in an export that still
    allowed it to be read is listed in :attr:`warnings`. Use the device as a context manager, or
    call :meth:`close`, to release its data.
    """

    def __init__(self, tz: Optional[str] = None, language: Optional[str] = None,
                 now: Optional[DateLike] = None, os_version: str = "17.0",
                 state: Optional[_PathLike] = None, store: Optional[_PathLike] = None,
                 export: Optional[_PathLike] = None, db: Optional[_PathLike] = None,
                 sources: Optional[_PathLike] = None,
                 source_priority: Union[None, str, Sequence[str]] = None) -> None:
        if isinstance(source_priority, str):
            source_priority = [part for part in source_priority.split(",") if part]
        self._native = _velk.NativeDevice(
            tz=tz, language=language, now=None if now is None else _instant_text(now, "now"),
            os_version=os_version, state=_path(state), store=_path(store),
            export=_path(export), db=_path(db), sources=_path(sources),
            source_priority=list(source_priority or []))
        self._zone = _zone_info(self._native.time_zone)

    # -- the device ------------------------------------------------------------------------------

    @property
    def time_zone(self) -> str:
        """The device's time zone (IANA name)."""
        return self._native.time_zone

    @property
    def warnings(self) -> List[str]:
        """What the data source reported while it was read (damaged parts of an export)."""
        return list(self._native.warnings)

    def close(self) -> None:
        """Releases the device's data. Later calls raise :class:`DeviceClosedError`."""
        self._native.close()

    def __enter__(self) -> "Device":
        return self

    def __exit__(self, *exc_info: Any) -> None:
        self.close()

    def instant(self, value: DateLike, argument: str = "date") -> _datetime.datetime:
        """The moment a date argument names, as an aware datetime in the device's zone: a date is
        its local midnight, a naive datetime a local wall time, ISO text read as ``velk`` reads it.
        """
        return self._datetime(self._seconds(value, argument))

    # -- documents -------------------------------------------------------------------------------

    def summary(self, kind: str, date: DateLike) -> Dict[str, Any]:
        """The summary document of ``kind`` ("sleep", "physical" or "body") for the day of
        ``date``, as the dict that ``velk summary KIND --date DATE`` prints. A night without sleep
        samples gives an empty dict. Raises the library's error when it answers with one."""
        if kind not in _KINDS:
            raise _bad_argument(f'kind: give "sleep", "physical" or "body", not {kind!r}')
        return _json.loads(self._native.summaries([kind], self._seconds(date, "date"))[0])

    def summaries(self, kinds: Union[str, Iterable[str]], start: DateLike, end: DateLike,
                  at: _datetime.time = _datetime.time(12)) -> Iterator[Dict[str, Any]]:
        """The documents of ``kinds`` ("sleep", "physical", "body" or "all", or several) for every
        day from the day of ``start`` to the day of ``end``, each day asked at the local time
        ``at``: a generator that asks one day at a time, in date order, the kinds of a day in the
        order given. The same documents as ``velk summary KINDS --from START --to END``."""
        names = _kind_names(kinds)
        _velk.columns(names)  # checks the kinds now, not at the first day
        moments = self._day_moments(start, end, at)
        return self._summaries(names, moments)

    def _summaries(self, names: List[str], moments: List[float]) -> Iterator[Dict[str, Any]]:
        reader = _velk.SummaryReader(self._native)  # one manager for every day, as a host keeps
        try:
            for moment in moments:
                for text in reader.day(names, moment):
                    yield _json.loads(text)
        finally:
            reader.close()

    # -- the day table ---------------------------------------------------------------------------

    def table(self, start: DateLike, end: DateLike,
              kinds: Union[str, Iterable[str]] = ("all",),
              at: _datetime.time = _datetime.time(12)) -> List[Dict[str, Any]]:
        """One row per day from the day of ``start`` to the day of ``end``: dicts with the
        columns of ``velk table`` (see :func:`columns`), in column order. Days are
        :class:`datetime.date`, times aware datetimes in the device's zone, empty cells None.
        Ctrl-C stops a long range with KeyboardInterrupt."""
        names = _kind_names(kinds)
        first = self._seconds(start, "start")
        last = self._seconds(end, "end")
        self._check_time(at)
        text = self._native.table(first, last, at.hour, at.minute, names)
        return _read_rows(text, names, self._zone)

    def frame(self, start: DateLike, end: DateLike,
              kinds: Union[str, Iterable[str]] = ("all",),
              at: _datetime.time = _datetime.time(12)) -> Any:
        """:meth:`table` as a pandas DataFrame (see :func:`to_pandas`). Needs pandas."""
        return to_pandas(self.table(start, end, kinds, at), kinds)

    # -- state and permissions -------------------------------------------------------------------

    def last_extraction_dates(self) -> Dict[str, Optional[_datetime.datetime]]:
        """The date of the last extraction of each kind ("sleep", "physical", "body"), as kept in
        the state file; None for a kind never extracted."""
        stored = self._native.last_extraction_dates()
        return {kind: None if stored[kind] is None else self._datetime(stored[kind])
                for kind in _KINDS}

    def request_permissions(self, kind: str = "all") -> bool:
        """Asks for read permission on what ``kind`` ("all", "sleep", "physical", "body") needs.
        True means the request was handled (not that every type was granted). Raises
        :class:`AppleHealthError` on a device without health data."""
        return self._native.request_permissions(kind)

    # -- dates -----------------------------------------------------------------------------------

    def _seconds(self, value: DateLike, argument: str) -> float:
        text = _instant_text(value, argument)
        seconds = self._native.instant(text)
        if seconds is None:
            raise _bad_argument(f"{argument}: {text!r} is not a date (give e.g. 2024-03-10, "
                                "2024-03-10T08:30 or 2024-03-10T08:30:00+01:00)")
        return seconds

    def _datetime(self, seconds: float) -> _datetime.datetime:
        return _datetime.datetime.fromtimestamp(seconds, self._zone)

    @staticmethod
    def _check_time(at: _datetime.time) -> None:
        if not isinstance(at, _datetime.time):
            raise _bad_argument(f"at: expected a datetime.time, not {type(at).__name__}")

    def _day_moments(self, start: DateLike, end: DateLike, at: _datetime.time) -> List[float]:
        first = self._seconds(start, "start")
        last = self._seconds(end, "end")
        self._check_time(at)
        return self._native.day_moments(first, last, at.hour, at.minute)


def import_export(path: _PathLike, db: _PathLike,
                  progress: Optional[Callable[[int, int], Any]] = None,
                  sources: Optional[_PathLike] = None) -> Dict[str, Any]:
    """Imports an export (``export.zip`` or its XML) into a database at ``db`` for fast repeated
    use (``Device(db=...)``), as ``velk import`` does. The database is replaced only when the
    import succeeds; an interrupted or failed import (Ctrl-C included) leaves the one before.

    ``progress``, if given, is called now and then with the bytes of export XML read so far and
    the total (0 when not known beforehand). ``sources`` maps source names to bundle identifiers
    (a JSON file). Returns what ``velk import`` prints, with the export's warnings and the span
    of the stored samples (aware UTC datetimes, None when nothing was stored)::

        {"database": ..., "export": ..., "samples": 1234, "samples_without_unit": 0,
         "characteristics": True, "xml_bytes": 5678, "warnings": [...],
         "earliest_sample_start": datetime(...), "latest_sample_end": datetime(...)}
    """
    summary = _json.loads(_velk.import_export(_os.fspath(path), _os.fspath(db), _path(sources),
                                              progress))
    for key in ("earliest_sample_start", "latest_sample_end"):
        if summary[key] is not None:
            summary[key] = _datetime.datetime.fromtimestamp(summary[key], _datetime.timezone.utc)
    return summary


def _zone_info(name: str) -> _datetime.tzinfo:
    try:
        from zoneinfo import ZoneInfo
        return ZoneInfo(name)
    except Exception:  # a zone that ICU knows and the system's tz database does not
        return _datetime.timezone.utc
