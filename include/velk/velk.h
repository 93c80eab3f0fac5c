/*
 * velk.h: the C interface of VelkAppleHealth.
 *
 * The three daily summary documents (sleep, physical activity, body) of one user's health records,
 * as JSON text, for programs in C and in any language that can call C (Python's ctypes, Rust, Go,
 * Swift, ...). Link with -lvelk (pkg-config velk, or find_package(VelkAppleHealth) and the target
 * VelkAppleHealth::velk).
 *
 * THE OBJECTS
 *
 *   velk_config                  what the device looks like: data source, state file, time zone,
 *                                language, OS version, clock, main-queue thread.
 *   velk_device                  the device built from a configuration, installed for the process.
 *                                Owns the main queue.
 *   velk_manager                 asks for the summaries and the last extraction dates.
 *   velk_permission_extraction   asks for read permissions.
 *
 * All four are opaque handles. Each is made by a function ending in _new or _open and released by
 * the matching _free or _close; nothing else frees them.
 *
 * ONE DEVICE PER PROCESS
 *
 * The library reads its device (time zone, clock, health data, user defaults) process-wide, as it
 * would on a phone. So at most one velk_device is open at a time: velk_device_open() fails with
 * VELK_ERROR_DEVICE_BUSY while another is open. Close it and open a new one to change the setup.
 *
 * ERRORS
 *
 * No function of this interface lets an exception or a crash out for a bad argument: a NULL
 * handle, a NULL callback, an unreadable file, an unknown time zone are all reported as errors.
 * Functions that can fail return a velk_error pointer: NULL means success; anything else is an
 * error that the CALLER OWNS and releases with velk_error_free(). The error's strings live as long
 * as the error. Errors of the library keep their own domain and code (a health-store error has the
 * domain "com.apple.healthkit"); errors of this interface's own checks have the domain
 * VELK_C_ERROR_DOMAIN and a velk_error_code.
 *
 * CALLBACKS
 *
 * Every summary and permission request takes a callback and a context pointer, which the library
 * passes back untouched. When the request function returns NULL (the request was started), the
 * callback is called exactly once, with these exceptions, both documented below: the handle that
 * made the request was released before the answer came, or the device was closed. When the request
 * function returns an error, the callback is never called.
 *
 * Exactly one of the callback's `json` and `error` is non-NULL (the permission callback: `success`
 * is 0 whenever `error` is non-NULL). Both point to memory of the library that lives UNTIL THE
 * CALLBACK RETURNS: copy what you need to keep. Do not free them.
 *
 * Where the callbacks run:
 *   - the sleep summary and the permission answers: on the health store's own thread;
 *   - the physical and body summaries: on the main queue (see THE MAIN QUEUE);
 *   - a permission request on a device without health data fails at once: its callback runs on
 *     the calling thread before the request function returns.
 * A callback may start new requests. It must not close the device (that is refused) and should not
 * release the handle whose request it answers.
 *
 * THE MAIN QUEUE
 *
 * The physical and body summaries are delivered on the main queue, which has no thread of its own:
 * the host runs it, as an application's run loop would. Either call velk_main_queue_run_until_idle,
 * velk_main_queue_run_for or velk_main_queue_run_until from one thread of yours (your "main
 * thread"), or let the library start a thread that runs it (velk_config_set_main_queue_thread).
 *
 * RELEASING A HANDLE WHILE A REQUEST IS OUT
 *
 * Releasing a manager drops the answers of its requests that are still out: the physical and body
 * callbacks, and a sleep callback after a successful read, are then never called; a sleep read
 * that fails still calls its callback with the error. Releasing a permission extraction does not
 * stop its requests: their callbacks are still called.
 *
 * Closing the device waits until every request that is out has finished (it runs the main queue
 * meanwhile) and drops the callbacks that were still due: after velk_device_close() returns, no
 * callback of this device runs. Handles made on a closed device may still be released; any other
 * call with them fails with VELK_ERROR_DEVICE_CLOSED.
 *
 * THREADS
 *
 * Requests may be started from any thread, also from inside callbacks, and several may be out at
 * once. A handle must not be released while another thread is still using it. A velk_config is
 * not safe for use from several threads at once. The main queue runs on one thread at a time.
 *
 * DATES
 *
 * A date is a double: seconds since 2001-01-01T00:00:00Z, the platform's reference date (add
 * VELK_REFERENCE_DATE_UNIX_SECONDS to get Unix time). The day of a summary is the calendar day of
 * that instant in the device's time zone; velk_device_date() makes an instant from a wall time in
 * that zone.
 */
#ifndef VELK_VELK_H
#define VELK_VELK_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__) || defined(__clang__)
#define VELK_API __attribute__((visibility("default")))
#else
#define VELK_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Unix time of the reference date 2001-01-01T00:00:00Z. */
#define VELK_REFERENCE_DATE_UNIX_SECONDS 978307200.0

/** The domain of the errors raised by this interface's own checks. */
#define VELK_C_ERROR_DOMAIN "velk.c"

/** The codes of the errors in VELK_C_ERROR_DOMAIN. */
typedef enum velk_error_code {
  VELK_ERROR_INVALID_ARGUMENT = 1, /**< a NULL handle, pointer or callback, or a bad value */
  VELK_ERROR_DEVICE_BUSY = 2,      /**< another device is open in this process */
  VELK_ERROR_DEVICE_CLOSED = 3,    /**< the handle's device has been closed */
  VELK_ERROR_WRONG_THREAD = 4,     /**< the call is not allowed from this thread (see the call) */
  VELK_ERROR_INTERNAL = 5          /**< the library failed unexpectedly (out of memory, ...) */
} velk_error_code;

/** An error: domain, numeric code and message, all never NULL. */
typedef struct velk_error {
  const char* domain;
  int64_t code;
  const char* message;
} velk_error;

/** Releases an error returned by this interface. NULL is allowed. Never call it on the error
 * passed to a callback. */
VELK_API void velk_error_free(velk_error* error);

/** The library's version, "MAJOR.MINOR.PATCH". Static storage. */
VELK_API const char* velk_version(void);

/** A line of the debug output, without its line break; it lives until the callback returns. */
typedef void (*velk_debug_callback)(void* context, const char* line);

/** Sends the library's debug output to `callback` (NULL: back to stderr, where it goes at first).
 * The debug output holds the few lines the library writes outside any callback: a failed read
 * inside the physical or body summary, a permission request on a device without health data,
 * and, last of all, "velk: fatal error: ..." when a programming error stops the process (that line
 * goes to stderr as well). The callback runs on the thread that writes, one line at a time, and
 * must not call this interface. Process-wide; safe to call from any thread. */
VELK_API void velk_set_debug_output(velk_debug_callback callback, void* context);

/** The three summary kinds. */
typedef enum velk_data_type {
  VELK_SLEEP_SUMMARY = 0,
  VELK_PHYSICAL_SUMMARY = 1,
  VELK_BODY_SUMMARY = 2
} velk_data_type;

typedef struct velk_config velk_config;
typedef struct velk_device velk_device;
typedef struct velk_manager velk_manager;
typedef struct velk_permission_extraction velk_permission_extraction;

/** A summary answer: the document's dictionary as JSON text, or the error. */
typedef void (*velk_summary_callback)(void* context, const char* json, const velk_error* error);

/** A permission answer: (the store's flag, NULL) or (0, the error). The flag means that the request
 * was handled, not that every type was granted. */
typedef void (*velk_permission_callback)(void* context, int success, const velk_error* error);

/** A condition for velk_main_queue_run_until: non-zero when the wait is over. */
typedef int (*velk_condition)(void* context);

/* ---------------------------------------------------------------------------------------------
 * Configuration. Defaults: no data source (an empty health store), user defaults kept in memory,
 * the host's time zone (UTC if it cannot be told), language "en", OS version 17.0, the system
 * clock, no main-queue thread. Each setter copies what it is given.
 * ------------------------------------------------------------------------------------------- */

/** A configuration with the defaults. NULL only when memory runs out. */
VELK_API velk_config* velk_config_new(void);
VELK_API void velk_config_free(velk_config* config);

/** The data source, one of three; setting one replaces any other. NULL removes the source. Files
 * are read by velk_device_open, which reports a path that cannot be read. */
/** A store file (JSON; see the project's docs/store-file.md). */
VELK_API velk_error* velk_config_set_store_file(velk_config* config, const char* path);
/** An Apple Health export: export.zip, or the export.xml inside it. */
VELK_API velk_error* velk_config_set_export(velk_config* config, const char* path);
/** A mapping of source names to bundle identifiers for an export (NULL: the default rule). */
VELK_API velk_error* velk_config_set_export_sources(velk_config* config, const char* path);
/** An imported database. */
VELK_API velk_error* velk_config_set_database(velk_config* config, const char* path);

/** The user-defaults file, where the last extraction dates persist (created if missing). NULL:
 * keep them in memory for the life of the device. */
VELK_API velk_error* velk_config_set_state_file(velk_config* config, const char* path);
/** An IANA time zone such as "Europe/Berlin"; an unknown one is an error. */
VELK_API velk_error* velk_config_set_time_zone(velk_config* config, const char* identifier);
/** The preferred language, a BCP 47 tag such as "de-DE"; empty is an error. */
VELK_API velk_error* velk_config_set_language(velk_config* config, const char* tag);
/** The OS version, "17.0" or "15.4.1"; it decides how sleep stages are read. */
VELK_API velk_error* velk_config_set_os_version(velk_config* config, const char* version);
/** A clock that always reads `reference_seconds` (see DATES). */
VELK_API velk_error* velk_config_set_fixed_now(velk_config* config, double reference_seconds);
/** The system clock (the default). */
VELK_API velk_error* velk_config_set_system_clock(velk_config* config);
/** Non-zero: the device starts a thread that runs the main queue until the device is closed. The
 * velk_main_queue_run_* functions are then refused. */
VELK_API velk_error* velk_config_set_main_queue_thread(velk_config* config, int start_thread);

/* ---------------------------------------------------------------------------------------------
 * The device.
 * ------------------------------------------------------------------------------------------- */

/** Builds the device that `config` describes (reading the data source now) and installs it for
 * the process. On success *device_out is the new device; on failure it is set to NULL. The
 * configuration may be released or reused afterwards. */
VELK_API velk_error* velk_device_open(const velk_config* config, velk_device** device_out);

/** Waits for the requests that are out, drops the callbacks still due, stops the main-queue
 * thread, uninstalls and releases the device. NULL is allowed. Refused with
 * VELK_ERROR_WRONG_THREAD from inside a callback; the device then stays open. */
VELK_API velk_error* velk_device_close(velk_device* device);

/** Warnings of the data source (damaged parts of an export): how many, and the one at `index`
 * (NULL when out of range). The text lives until the device is closed. */
VELK_API size_t velk_device_warning_count(const velk_device* device);
VELK_API const char* velk_device_warning(const velk_device* device, size_t index);

/** The instant at a wall time in the device's time zone (month 1-12). A wall time skipped by a
 * clock change is read after the change. */
VELK_API velk_error* velk_device_date(const velk_device* device, int year, int month, int day,
                                      int hour, int minute, int second, double* date_out);

/* ---------------------------------------------------------------------------------------------
 * The main queue. Refused (VELK_ERROR_WRONG_THREAD) when the device runs a main-queue thread.
 * ------------------------------------------------------------------------------------------- */

/** Runs what is queued now, and what is queued while it runs, until the queue is empty. *ran_out
 * (may be NULL) receives the number of items run. */
VELK_API velk_error* velk_main_queue_run_until_idle(velk_device* device, size_t* ran_out);

/** Runs items as they arrive for `milliseconds` (less if the device starts closing). */
VELK_API velk_error* velk_main_queue_run_for(velk_device* device, uint32_t milliseconds);

/** Runs items as they arrive until `done(context)` is non-zero (checked on entry and after each
 * item) or `timeout_milliseconds` have passed, or the device starts closing on another thread.
 * *satisfied_out (may be NULL) receives whether `done` held. */
VELK_API velk_error* velk_main_queue_run_until(velk_device* device, velk_condition done,
                                               void* context, uint32_t timeout_milliseconds,
                                               int* satisfied_out);

/* ---------------------------------------------------------------------------------------------
 * Summaries. Any number of managers may exist; they see the same stored dates.
 * ------------------------------------------------------------------------------------------- */

VELK_API velk_error* velk_manager_new(velk_device* device, velk_manager** manager_out);
/** Releases the manager; answers still out are handled as RELEASING A HANDLE says. NULL is
 * allowed. */
VELK_API void velk_manager_free(velk_manager* manager);

/** The sleep summary of the night before the day of `date`. The callback runs on the health
 * store's thread. A day without sleep data gives "{}". */
VELK_API velk_error* velk_get_sleep_summary_objc(velk_manager* manager, double date,
                                                 velk_summary_callback callback, void* context);
/** The physical summary of the day of `date`. The callback runs on the main queue. */
VELK_API velk_error* velk_get_physical_summary_objc(velk_manager* manager, double date,
                                                    velk_summary_callback callback, void* context);
/** The body summary as of `date`. The callback runs on the main queue. */
VELK_API velk_error* velk_get_body_summary_objc(velk_manager* manager, double date,
                                                velk_summary_callback callback, void* context);

/** The stored date of the last extraction of `kind`: *has_date_out is 1 and *date_out the date,
 * or *has_date_out is 0 when none is stored. Synchronous. */
VELK_API velk_error* velk_get_last_extraction_date(const velk_manager* manager, velk_data_type kind,
                                                   int* has_date_out, double* date_out);
/** The published per-kind getters. All three read the SLEEP entry, as they always have; hosts
 * rely on it. Use velk_get_last_extraction_date for the physical or body date. */
VELK_API velk_error* velk_get_last_extraction_date_of_sleep(const velk_manager* manager,
                                                            int* has_date_out, double* date_out);
VELK_API velk_error* velk_get_last_extraction_date_of_physical(const velk_manager* manager,
                                                               int* has_date_out, double* date_out);
VELK_API velk_error* velk_get_last_extraction_date_of_body(const velk_manager* manager,
                                                           int* has_date_out, double* date_out);

/* ---------------------------------------------------------------------------------------------
 * Permissions: read access only. The callback runs on the health store's thread, or at once on the
 * calling thread when the device has no health data (error "apple health kit is not avaible un
 * your device").
 * ------------------------------------------------------------------------------------------- */

VELK_API velk_error* velk_permission_extraction_new(velk_device* device,
                                                    velk_permission_extraction** extraction_out);
VELK_API void velk_permission_extraction_free(velk_permission_extraction* extraction);

/** Every health data type the library knows. */
VELK_API velk_error* velk_request_all_permissions_objc(velk_permission_extraction* extraction,
                                                       velk_permission_callback callback,
                                                       void* context);
/** Sleep analysis. */
VELK_API velk_error* velk_request_sleep_permissions_objc(velk_permission_extraction* extraction,
                                                         velk_permission_callback callback,
                                                         void* context);
/** The types of the physical summary's family. */
VELK_API velk_error* velk_request_physical_permissions_objc(velk_permission_extraction* extraction,
                                                            velk_permission_callback callback,
                                                            void* context);
/** Body mass, height, biological sex and date of birth. */
VELK_API velk_error* velk_request_body_permissions_objc(velk_permission_extraction* extraction,
                                                        velk_permission_callback callback,
                                                        void* context);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* VELK_VELK_H */
