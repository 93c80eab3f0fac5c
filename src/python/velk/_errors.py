"""The exceptions of the velk package.

Every error of the library reaches Python as a :class:`velk.Error` (never a bare RuntimeError),
carrying the library's own ``domain``, ``code`` and ``message``. The subclass says which family it
belongs to, so that a caller can catch what it can handle::

    try:
        device.summary("sleep", "2024-03-10")
    except velk.HealthStoreError as error:     # the store refused (e.g. no authorisation)
        print(error.code, error.message)
"""

from __future__ import annotations

from typing import Dict, Type

#: The domain of the package's own errors (a bad argument, a closed device).
PACKAGE_DOMAIN = "velk.python"


class Error(Exception):
    """An error of the library: its ``domain``, numeric ``code`` and ``message``."""

    def __init__(self, domain: str, code: int, message: str) -> None:
        super().__init__(message)
        self.domain = domain
        self.code = code
        self.message = message

    def __repr__(self) -> str:
        return f"{type(self).__name__}({self.domain!r}, {self.code}, {self.message!r})"


class AppleHealthError(Error):
    """One of the library's AppleHealthErrors (domain "VelkAppleHealth.AppleHealthErrors"), e.g.
    ``healthKitNotavailable`` (code 0) for a device without health data. The code is the case's
    position in the set."""


class ExtractionError(Error):
    """One of the library's ExtractionErrors (domain "VelkAppleHealth.ExtractionErrors")."""


class HealthStoreError(Error):
    """An error of the health store itself (domain "com.apple.healthkit"), passed on unchanged."""


class InputError(Error, ValueError):
    """Bad input: an unknown time zone, a bad date, an unreadable store file, export or database,
    a missing file. The message names the input and what is wrong with it."""


class TableError(Error):
    """The day table could not be made: no answer from the library in time (domain "velk.table")."""


class DeviceClosedError(Error):
    """The device was closed (domain "velk.python", code 2)."""


_BY_DOMAIN: Dict[str, Type[Error]] = {
    "VelkAppleHealth.AppleHealthErrors": AppleHealthError,
    "VelkAppleHealth.ExtractionErrors": ExtractionError,
    "com.apple.healthkit": HealthStoreError,
    "velk.ingest.device-configuration": InputError,
    "velk.ingest.store-file": InputError,
    "velk.ingest.export": InputError,
    "velk.ingest.database": InputError,
    "velk.table": TableError,
}


def error_for(domain: str, code: int, message: str) -> Error:
    """The exception for an error of the library (used by the compiled module)."""
    if domain == PACKAGE_DOMAIN:
        return (DeviceClosedError if code == 2 else InputError)(domain, code, message)
    if domain == "velk.table" and code == 2:  # a range that runs backwards
        return InputError(domain, code, message)
    return _BY_DOMAIN.get(domain, Error)(domain, code, message)


def bad_argument(message: str) -> InputError:
    """An InputError of the package's own checks."""
    return InputError(PACKAGE_DOMAIN, 1, message)
