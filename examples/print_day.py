#!/usr/bin/env python3
"""Prints the three summary documents (sleep, physical, body) of one day of an Apple Health export,
or of a database made from one by `velk import`, through the C interface of libvelk, with nothing
but the standard library (ctypes).

    print_day.py EXPORT|DATABASE TIME_ZONE YYYY-MM-DD
    print_day.py data/sample/watch5-2020/export.xml Africa/Johannesburg 2020-04-13
    print_day.py ~/.local/share/velk/health.sqlite Africa/Johannesburg 2020-04-13

The library is found through VELK_LIBRARY (a path to libvelk.so), else the system's library path.

Python has no run loop that the library could use, so the device is asked to run its main queue on
a thread of its own. The callbacks then arrive on library threads (the sleep document on the health
store's, the others on the main queue's); each stores its answer and sets an event.
"""

import ctypes
import ctypes.util
import json
import os
import sys
import threading


class VelkError(ctypes.Structure):
    _fields_ = [("domain", ctypes.c_char_p), ("code", ctypes.c_int64), ("message", ctypes.c_char_p)]


ERROR = ctypes.POINTER(VelkError)
HANDLE = ctypes.c_void_p
SUMMARY_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_char_p, ERROR)


class LibraryError(Exception):
    pass


def load_library():
    path = os.environ.get("VELK_LIBRARY") or ctypes.util.find_library("velk")
    if not path:
        sys.exit("print_day.py: libvelk not found; set VELK_LIBRARY to its path")
    library = ctypes.CDLL(path)
    signatures = {
        "velk_error_free": (None, [ERROR]),
        "velk_config_new": (HANDLE, []),
        "velk_config_free": (None, [HANDLE]),
        "velk_config_set_export": (ERROR, [HANDLE, ctypes.c_char_p]),
        "velk_config_set_database": (ERROR, [HANDLE, ctypes.c_char_p]),
        "velk_config_set_time_zone": (ERROR, [HANDLE, ctypes.c_char_p]),
        "velk_config_set_main_queue_thread": (ERROR, [HANDLE, ctypes.c_int]),
        "velk_device_open": (ERROR, [HANDLE, ctypes.POINTER(HANDLE)]),
        "velk_device_close": (ERROR, [HANDLE]),
        "velk_device_date": (ERROR, [HANDLE] + [ctypes.c_int] * 6 + [ctypes.POINTER(ctypes.c_double)]),
        "velk_manager_new": (ERROR, [HANDLE, ctypes.POINTER(HANDLE)]),
        "velk_manager_free": (None, [HANDLE]),
    }
    for name in ("velk_get_sleep_summary_objc", "velk_get_physical_summary_objc",
                 "velk_get_body_summary_objc"):
        signatures[name] = (ERROR, [HANDLE, ctypes.c_double, SUMMARY_CALLBACK, ctypes.c_void_p])
    for name, (result, arguments) in signatures.items():
        function = getattr(library, name)
        function.restype = result
        function.argtypes = arguments
    return library


def check(library, error):
    """Raises the library's error (after freeing it) when there is one."""
    if error:
        text = "%s (%s %d)" % (error.contents.message.decode(), error.contents.domain.decode(),
                               error.contents.code)
        library.velk_error_free(error)
        raise LibraryError(text)


def is_database(path):
    """Whether the file is an SQLite database (a `velk import`) rather than an export."""
    try:
        with open(path, "rb") as file:
            return file.read(16) == b"SQLite format 3\0"
    except OSError:
        return False  # the export reader says what is wrong with it


def main():
    if len(sys.argv) != 4:
        sys.exit("usage: print_day.py EXPORT|DATABASE TIME_ZONE YYYY-MM-DD")
    source, zone, day = sys.argv[1], sys.argv[2], sys.argv[3]
    year, month, date_of_month = (int(part) for part in day.split("-"))

    velk = load_library()
    config = velk.velk_config_new()
    device = HANDLE()
    try:
        set_source = velk.velk_config_set_database if is_database(source) else velk.velk_config_set_export
        check(velk, set_source(config, source.encode()))
        check(velk, velk.velk_config_set_time_zone(config, zone.encode()))
        check(velk, velk.velk_config_set_main_queue_thread(config, 1))
        check(velk, velk.velk_device_open(config, ctypes.byref(device)))
    finally:
        velk.velk_config_free(config)

    answers = {}
    arrived = {kind: threading.Event() for kind in ("sleep", "physical", "body")}

    def callback_for(kind):
        # The texts live only while the callback runs: decode (copy) them here.
        def on_document(_context, text, error):
            if error:
                answers[kind] = LibraryError(error.contents.message.decode())
            else:
                answers[kind] = json.loads(text.decode())
            arrived[kind].set()
        return SUMMARY_CALLBACK(on_document)

    # The callback objects must outlive the requests, or ctypes frees them under the library.
    callbacks = {kind: callback_for(kind) for kind in arrived}
    manager = HANDLE()
    status = 0
    try:
        check(velk, velk.velk_manager_new(device, ctypes.byref(manager)))
        noon = ctypes.c_double()
        check(velk, velk.velk_device_date(device, year, month, date_of_month, 12, 0, 0,
                                          ctypes.byref(noon)))
        check(velk, velk.velk_get_sleep_summary_objc(manager, noon, callbacks["sleep"], None))
        check(velk, velk.velk_get_physical_summary_objc(manager, noon, callbacks["physical"], None))
        check(velk, velk.velk_get_body_summary_objc(manager, noon, callbacks["body"], None))
        for kind, event in arrived.items():
            if not event.wait(60):
                raise LibraryError("the %s document did not arrive" % kind)
            answer = answers[kind]
            if isinstance(answer, LibraryError):
                print("print_day.py: %s: %s" % (kind, answer), file=sys.stderr)
                status = 1
            else:
                print("%s: %s" % (kind, json.dumps(answer, indent=2, sort_keys=True)))
    except LibraryError as error:
        print("print_day.py: %s" % error, file=sys.stderr)
        status = 1
    finally:
        velk.velk_manager_free(manager)
        check(velk, velk.velk_device_close(device))
    return status


if __name__ == "__main__":
    sys.exit(main())
