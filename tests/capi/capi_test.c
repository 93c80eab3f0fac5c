/*
 * Drives the C interface from C, as a host written in C would: configuration faults and NULL
 * arguments as error values, the three summaries and the permissions with the threads they are
 * answered on, the last extraction dates, one device per process, closing with requests out, and
 * a manager released while a query is out.
 *
 * Usage: velk_capi_tests CASE   (the cases are listed in `cases` at the bottom).
 */
#define _POSIX_C_SOURCE 200809L

#include <pthread.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "velk/velk.h"

static int failures = 0;

#define CHECK(condition)                                                            \
  do {                                                                              \
    if (!(condition)) {                                                             \
      fprintf(stderr, "%s:%d: CHECK failed: %s\n", __FILE__, __LINE__, #condition); \
      ++failures;                                                                   \
    }                                                                               \
  } while (0)

/* Checks that `error` is an error of `domain` with `code` whose message contains `part`, and
 * frees it. */
static void expect_error(velk_error* error, const char* domain, int64_t code, const char* part,
                         int line) {
  if (error == NULL) {
    fprintf(stderr, "%s:%d: expected an error (%s %lld), got none\n", __FILE__, line, domain,
            (long long)code);
    ++failures;
    return;
  }
  if (strcmp(error->domain, domain) != 0 || error->code != code ||
      strstr(error->message, part) == NULL) {
    fprintf(stderr, "%s:%d: expected %s %lld \"...%s...\", got %s %lld \"%s\"\n", __FILE__, line,
            domain, (long long)code, part, error->domain, (long long)error->code, error->message);
    ++failures;
  }
  velk_error_free(error);
}
#define EXPECT_ERROR(call, domain, code, part) \
  expect_error((call), (domain), (code), (part), __LINE__)
#define EXPECT_INVALID(call, part) \
  EXPECT_ERROR(call, VELK_C_ERROR_DOMAIN, VELK_ERROR_INVALID_ARGUMENT, part)

static void expect_ok(velk_error* error, int line) {
  if (error != NULL) {
    fprintf(stderr, "%s:%d: unexpected error %s %lld \"%s\"\n", __FILE__, line, error->domain,
            (long long)error->code, error->message);
    ++failures;
    velk_error_free(error);
  }
}
#define EXPECT_OK(call) expect_ok((call), __LINE__)

/* ----- fixtures ----------------------------------------------------------------------------- */

static char temp_dir[256];

static void make_temp_dir(void) {
  snprintf(temp_dir, sizeof temp_dir, "%s", "/tmp/velk-capi-XXXXXX");
  if (mkdtemp(temp_dir) == NULL) {
    perror("mkdtemp");
    exit(2);
  }
}

static void remove_temp_dir(void) {
  char command[300];
  snprintf(command, sizeof command, "rm -rf '%s'", temp_dir);
  if (system(command) != 0) {
    fprintf(stderr, "could not remove %s\n", temp_dir);
  }
}

static const char* temp_path(const char* name) {
  static char paths[4][320];
  static int next = 0;
  char* path = paths[next++ % 4];
  snprintf(path, sizeof paths[0], "%s/%s", temp_dir, name);
  return path;
}

/* A night of sleep before 2024-03-10, steps that day, a weight and a birthday, in Berlin time. */
static const char* const kDayStore =
    "{\"date_of_birth\": \"1990-06-15\", \"biological_sex\": 1, \"samples\": ["
    "{\"type\": \"HKCategoryTypeIdentifierSleepAnalysis\", \"start\": "
    "\"2024-03-09T23:00:00+01:00\","
    " \"end\": \"2024-03-10T06:00:00+01:00\", \"value\": 3, \"source\": \"com.apple.health.1A2B\"},"
    "{\"type\": \"HKQuantityTypeIdentifierStepCount\", \"start\": \"2024-03-10T09:00:00+01:00\","
    " \"end\": \"2024-03-10T09:30:00+01:00\", \"value\": 4321, \"source\": "
    "\"com.apple.health.1A2B\"},"
    "{\"type\": \"HKQuantityTypeIdentifierBodyMass\", \"start\": \"2024-03-08T07:00:00+01:00\","
    " \"end\": \"2024-03-08T07:00:00+01:00\", \"value\": 72.6, \"source\": "
    "\"com.apple.health.1A2B\"}"
    "]}";

static const char* write_store(const char* name, const char* json) {
  const char* path = temp_path(name);
  FILE* file = fopen(path, "w");
  if (file == NULL || fputs(json, file) < 0 || fclose(file) != 0) {
    perror(path);
    exit(2);
  }
  return path;
}

/* A device over a store file in Berlin, its clock fixed, its defaults in `state` (NULL: memory). */
static velk_device* open_device(const char* store_json, const char* state, int main_thread) {
  velk_config* config = velk_config_new();
  EXPECT_OK(velk_config_set_store_file(config, write_store("store.json", store_json)));
  EXPECT_OK(velk_config_set_time_zone(config, "Europe/Berlin"));
  EXPECT_OK(velk_config_set_fixed_now(config, 731851200.0)); /* 2024-03-10T13:00:00Z */
  EXPECT_OK(velk_config_set_state_file(config, state));
  EXPECT_OK(velk_config_set_main_queue_thread(config, main_thread));
  velk_device* device = NULL;
  EXPECT_OK(velk_device_open(config, &device));
  velk_config_free(config);
  if (device == NULL) {
    fprintf(stderr, "cannot go on without a device\n");
    exit(1);
  }
  return device;
}

static double noon_of_day(velk_device* device) {
  double date = 0;
  EXPECT_OK(velk_device_date(device, 2024, 3, 10, 12, 0, 0, &date));
  return date;
}

/* What a callback saw. Written on the thread of the callback, read after `calls` says so. */
typedef struct answer {
  atomic_int calls;
  int on_main_thread;
  int success;
  char json[8192];
  char error_domain[64];
  long long error_code;
  char error_message[256];
} answer;

static pthread_t main_thread_id;

static void record(answer* into, const char* json, const velk_error* error) {
  into->on_main_thread = pthread_equal(pthread_self(), main_thread_id);
  CHECK((json == NULL) != (error == NULL));
  if (json != NULL) {
    snprintf(into->json, sizeof into->json, "%s", json);
  }
  if (error != NULL) {
    snprintf(into->error_domain, sizeof into->error_domain, "%s", error->domain);
    into->error_code = (long long)error->code;
    snprintf(into->error_message, sizeof into->error_message, "%s", error->message);
  }
  atomic_fetch_add(&into->calls, 1);
}

static void on_summary(void* context, const char* json, const velk_error* error) {
  record(context, json, error);
}

static void on_permission(void* context, int success, const velk_error* error) {
  answer* into = context;
  into->success = success;
  CHECK(error == NULL || success == 0);
  record(into, error == NULL ? "" : NULL, error);
}

static int answered(void* context) {
  return atomic_load(&((answer*)context)->calls) > 0;
}

static void sleep_ms(long milliseconds) {
  struct timespec pause = {milliseconds / 1000, (milliseconds % 1000) * 1000000L};
  nanosleep(&pause, NULL);
}

/* Waits (without running the main queue) until `into` has been answered, for up to 5 s. */
static int wait_for(answer* into) {
  for (int i = 0; i < 500 && !answered(into); ++i) {
    sleep_ms(10);
  }
  return answered(into);
}

/* ----- cases -------------------------------------------------------------------------------- */

/* Every NULL handle, pointer and callback, and every bad value, is an error value. */
static void test_bad_arguments(void) {
  velk_error_free(NULL);
  CHECK(strcmp(velk_version(), VELK_EXPECTED_VERSION) == 0);

  EXPECT_INVALID(velk_config_set_time_zone(NULL, "UTC"), "config is NULL");
  EXPECT_INVALID(velk_device_open(NULL, NULL), "device_out is NULL");
  velk_device* device = (velk_device*)&device; /* must be reset to NULL */
  EXPECT_INVALID(velk_device_open(NULL, &device), "config is NULL");
  CHECK(device == NULL);
  EXPECT_OK(velk_device_close(NULL));
  CHECK(velk_device_warning_count(NULL) == 0 && velk_device_warning(NULL, 0) == NULL);

  velk_manager* manager = NULL;
  EXPECT_INVALID(velk_manager_new(NULL, &manager), "device is NULL");
  EXPECT_INVALID(velk_get_sleep_summay_objc(NULL, 0, on_summary, NULL), "manager is NULL");
  EXPECT_INVALID(velk_get_physical_summary_objc(NULL, 0, on_summary, NULL), "manager is NULL");
  EXPECT_INVALID(velk_get_body_summary_objc(NULL, 0, on_summary, NULL), "manager is NULL");
  int has = 0;
  double date = 0;
  EXPECT_INVALID(velk_get_last_extraction_date(NULL, VELK_BODY_SUMMARY, &has, &date), "manager");
  EXPECT_INVALID(velk_get_last_extraction_date_of_sleep(NULL, &has, &date), "manager is NULL");
  EXPECT_INVALID(velk_get_last_extraction_date_of_physical(NULL, &has, &date), "manager is NULL");
  EXPECT_INVALID(velk_get_last_extraction_date_of_body(NULL, &has, &date), "manager is NULL");
  velk_manager_free(NULL);
  velk_permission_extraction* extraction = NULL;
  EXPECT_INVALID(velk_permission_extraction_new(NULL, &extraction), "device is NULL");
  EXPECT_INVALID(velk_request_all_permissions_objc(NULL, on_permission, NULL), "extraction");
  EXPECT_INVALID(velk_reques_body_permissions_objc(NULL, on_permission, NULL), "extraction");
  velk_permission_extraction_free(NULL);
  EXPECT_INVALID(velk_main_queue_run_until_idle(NULL, NULL), "device is NULL");
  EXPECT_INVALID(velk_main_queue_run_for(NULL, 1), "device is NULL");

  velk_config* config = velk_config_new();
  EXPECT_INVALID(velk_config_set_time_zone(config, "Mars/Olympus_Mons"), "Mars/Olympus_Mons");
  EXPECT_INVALID(velk_config_set_time_zone(config, NULL), "identifier is NULL");
  EXPECT_INVALID(velk_config_set_language(config, ""), "empty");
  EXPECT_INVALID(velk_config_set_os_version(config, "17"), "\"17\"");
  EXPECT_INVALID(velk_config_set_os_version(config, "seventeen"), "seventeen");
  EXPECT_OK(velk_config_set_os_version(config, "15.4.1"));
  EXPECT_INVALID(velk_config_set_store_file(config, ""), "empty");
  EXPECT_INVALID(velk_config_set_fixed_now(config, 1.0 / 0.0), "finite");

  /* A path that cannot be read fails at open, with the reader's error, and leaves no device. */
  EXPECT_OK(velk_config_set_store_file(config, temp_path("missing.json")));
  device = (velk_device*)&device;
  velk_error* error = velk_device_open(config, &device);
  CHECK(error != NULL && device == NULL);
  CHECK(error != NULL && strstr(error->message, "missing.json") != NULL);
  velk_error_free(error);
  /* The last source set wins; a source mapping without an export is refused. */
  EXPECT_OK(velk_config_set_export(config, temp_path("missing.zip")));
  EXPECT_OK(velk_config_set_store_file(config, write_store("empty.json", "{}")));
  EXPECT_OK(velk_config_set_export_sources(config, temp_path("sources.json")));
  EXPECT_ERROR(velk_device_open(config, &device), "velk.ingest.device-configuration", 4,
               "exports only");
  EXPECT_OK(velk_config_set_export_sources(config, NULL));
  EXPECT_OK(velk_config_set_state_file(config, "/proc/velk/defaults.sqlite"));
  EXPECT_ERROR(velk_device_open(config, &device), "velk.ingest.device-configuration", 5, "/proc");
  EXPECT_OK(velk_config_set_state_file(config, NULL));

  /* With a good configuration, the handle functions check their remaining arguments. */
  EXPECT_OK(velk_device_open(config, &device));
  EXPECT_INVALID(velk_manager_new(device, NULL), "manager_out is NULL");
  EXPECT_OK(velk_manager_new(device, &manager));
  EXPECT_INVALID(velk_get_sleep_summay_objc(manager, 0, NULL, NULL), "callback is NULL");
  EXPECT_INVALID(velk_get_last_extraction_date(manager, (velk_data_type)7, &has, &date), "kind 7");
  EXPECT_INVALID(velk_get_last_extraction_date_of_body(manager, NULL, &date), "has_date_out");
  EXPECT_INVALID(velk_device_date(device, 2024, 3, 10, 12, 0, 0, NULL), "date_out is NULL");
  EXPECT_INVALID(velk_main_queue_run_until(device, NULL, NULL, 1, NULL), "done is NULL");
  EXPECT_OK(velk_permission_extraction_new(device, &extraction));
  EXPECT_INVALID(velk_request_sleep_permissions_objc(extraction, NULL, NULL), "callback is NULL");
  velk_permission_extraction_free(extraction);
  velk_manager_free(manager);
  EXPECT_OK(velk_device_close(device));
  velk_config_free(config);
}

/* The three documents: sleep answered on the store's thread, physical and body only when the
 * host runs the main queue, on the thread that runs it; the dates stored on the way persist in
 * the state file, and the published per-kind getters read the sleep entry. */
static void test_summaries(void) {
  const char* state = temp_path("defaults.sqlite");
  velk_device* device = open_device(kDayStore, state, 0);
  velk_manager* manager = NULL;
  EXPECT_OK(velk_manager_new(device, &manager));
  const double day = noon_of_day(device);

  answer sleep = {0}, physical = {0}, body = {0};
  EXPECT_OK(velk_get_sleep_summay_objc(manager, day, on_summary, &sleep));
  EXPECT_OK(velk_get_physical_summary_objc(manager, day, on_summary, &physical));
  EXPECT_OK(velk_get_body_summary_objc(manager, day, on_summary, &body));

  CHECK(wait_for(&sleep));
  CHECK(!sleep.on_main_thread);
  CHECK(strstr(sleep.json, "\"data_structure\":\"sleep_health\"") != NULL);
  CHECK(strstr(sleep.json, "\"sleep_duration_seconds\":25200") != NULL);
  sleep_ms(50);
  CHECK(atomic_load(&physical.calls) == 0 && atomic_load(&body.calls) == 0);

  int satisfied = 0;
  EXPECT_OK(velk_main_queue_run_until(device, answered, &physical, 5000, &satisfied));
  CHECK(satisfied);
  EXPECT_OK(velk_main_queue_run_until(device, answered, &body, 5000, &satisfied));
  CHECK(satisfied);
  CHECK(physical.on_main_thread && body.on_main_thread);
  CHECK(strstr(physical.json, "\"steps_per_day_number\":4321") != NULL);
  CHECK(strstr(body.json, "\"data_structure\":\"body_health\"") != NULL);
  CHECK(strstr(body.json, "\"weight_kg_number\":72") != NULL);
  size_t ran = 99;
  EXPECT_OK(velk_main_queue_run_until_idle(device, &ran));
  CHECK(ran == 0);
  CHECK(atomic_load(&sleep.calls) == 1 && atomic_load(&physical.calls) == 1 &&
        atomic_load(&body.calls) == 1);
  velk_manager_free(manager);
  EXPECT_OK(velk_device_close(device));

  /* A new device over the same state file sees the dates. */
  device = open_device(kDayStore, state, 0);
  EXPECT_OK(velk_manager_new(device, &manager));
  int has = 0;
  double sleepDate = 0, physicalDate = 0, date = 0;
  EXPECT_OK(velk_get_last_extraction_date(manager, VELK_SLEEP_SUMMARY, &has, &sleepDate));
  CHECK(has == 1 && sleepDate == day);
  EXPECT_OK(velk_get_last_extraction_date(manager, VELK_PHYSICAL_SUMMARY, &has, &physicalDate));
  CHECK(has == 1 && physicalDate == day);
  /* Move the sleep entry away by extracting another night; the per-kind getters follow it. */
  answer again = {0};
  EXPECT_OK(velk_get_sleep_summay_objc(manager, day + 86400, on_summary, &again));
  CHECK(wait_for(&again));
  EXPECT_OK(velk_get_last_extraction_date_of_physical(manager, &has, &date));
  CHECK(has == 1 && date == day + 86400);
  EXPECT_OK(velk_get_last_extraction_date_of_body(manager, &has, &date));
  CHECK(has == 1 && date == day + 86400);
  EXPECT_OK(velk_get_last_extraction_date(manager, VELK_BODY_SUMMARY, &has, &date));
  CHECK(has == 1 && date == day);
  velk_manager_free(manager);
  EXPECT_OK(velk_device_close(device));

  /* With a state kept in memory nothing is stored yet. */
  device = open_device(kDayStore, NULL, 0);
  EXPECT_OK(velk_manager_new(device, &manager));
  has = 1;
  EXPECT_OK(velk_get_last_extraction_date_of_sleep(manager, &has, &date));
  CHECK(has == 0);
  velk_manager_free(manager);
  EXPECT_OK(velk_device_close(device));
}

/* Failures come as (no document, the error) and (0, the error), with the library's own domain,
 * code and message. */
static void test_errors_in_callbacks(void) {
  velk_device* device = open_device(
      "{\"authorization\": {\"success\": true, \"error\": {\"code\": 4, \"message\": \"denied\"}},"
      " \"query_errors\": {\"HKCategoryTypeIdentifierSleepAnalysis\":"
      " {\"code\": 5, \"message\": \"Authorization not determined\"}}}",
      NULL, 0);
  velk_manager* manager = NULL;
  EXPECT_OK(velk_manager_new(device, &manager));
  answer sleep = {0};
  EXPECT_OK(velk_get_sleep_summay_objc(manager, noon_of_day(device), on_summary, &sleep));
  CHECK(wait_for(&sleep));
  CHECK(strcmp(sleep.error_domain, "com.apple.healthkit") == 0 && sleep.error_code == 5);
  CHECK(strcmp(sleep.error_message, "Authorization not determined") == 0);

  velk_permission_extraction* extraction = NULL;
  EXPECT_OK(velk_permission_extraction_new(device, &extraction));
  answer denied = {0};
  EXPECT_OK(velk_request_physical_permissions_objc(extraction, on_permission, &denied));
  CHECK(wait_for(&denied));
  CHECK(denied.success == 0 && !denied.on_main_thread);
  CHECK(strcmp(denied.error_domain, "com.apple.healthkit") == 0 && denied.error_code == 4);
  velk_permission_extraction_free(extraction);
  velk_manager_free(manager);
  EXPECT_OK(velk_device_close(device));

  /* Without health data a permission request fails before it returns, on the caller's thread. */
  device = open_device("{\"health_data_available\": false}", NULL, 0);
  EXPECT_OK(velk_permission_extraction_new(device, &extraction));
  answer unavailable = {0};
  EXPECT_OK(velk_reques_body_permissions_objc(extraction, on_permission, &unavailable));
  CHECK(atomic_load(&unavailable.calls) == 1 && unavailable.on_main_thread);
  CHECK(unavailable.success == 0);
  CHECK(strcmp(unavailable.error_message, "apple health kit is not avaible un your device") == 0);
  velk_permission_extraction_free(extraction);
  EXPECT_OK(velk_device_close(device));

  /* Granted: (1, no error). */
  device = open_device("{}", NULL, 0);
  EXPECT_OK(velk_permission_extraction_new(device, &extraction));
  answer granted = {0};
  EXPECT_OK(velk_request_all_permissions_objc(extraction, on_permission, &granted));
  CHECK(wait_for(&granted));
  CHECK(granted.success == 1 && granted.error_domain[0] == '\0');
  velk_permission_extraction_free(extraction);
  EXPECT_OK(velk_device_close(device));
}

/* One device at a time; after closing, its handles fail cleanly and can still be released. */
static void test_device_lifecycle(void) {
  velk_device* device = open_device("{}", NULL, 0);
  velk_config* config = velk_config_new();
  velk_device* second = (velk_device*)&second;
  EXPECT_ERROR(velk_device_open(config, &second), VELK_C_ERROR_DOMAIN, VELK_ERROR_DEVICE_BUSY,
               "another device");
  CHECK(second == NULL);

  velk_manager* manager = NULL;
  velk_permission_extraction* extraction = NULL;
  EXPECT_OK(velk_manager_new(device, &manager));
  EXPECT_OK(velk_permission_extraction_new(device, &extraction));
  answer dropped = {0};
  EXPECT_OK(velk_get_physical_summary_objc(manager, noon_of_day(device), on_summary, &dropped));
  EXPECT_OK(velk_device_close(device)); /* the physical answer was due: it is dropped */
  CHECK(atomic_load(&dropped.calls) == 0);

  answer refused = {0};
  int has = 0;
  double date = 0;
  EXPECT_ERROR(velk_get_body_summary_objc(manager, 0, on_summary, &refused), VELK_C_ERROR_DOMAIN,
               VELK_ERROR_DEVICE_CLOSED, "closed");
  EXPECT_ERROR(velk_get_last_extraction_date_of_sleep(manager, &has, &date), VELK_C_ERROR_DOMAIN,
               VELK_ERROR_DEVICE_CLOSED, "closed");
  EXPECT_ERROR(velk_request_sleep_permissions_objc(extraction, on_permission, &refused),
               VELK_C_ERROR_DOMAIN, VELK_ERROR_DEVICE_CLOSED, "closed");
  CHECK(atomic_load(&refused.calls) == 0);

  /* The process may open a device again although old handles still exist. */
  EXPECT_OK(velk_device_open(config, &second));
  velk_manager_free(manager);
  velk_permission_extraction_free(extraction);
  EXPECT_OK(velk_device_close(second));
  velk_config_free(config);
}

typedef struct closing_attempt {
  velk_device* device;
  answer result;
} closing_attempt;

static void close_from_callback(void* context, const char* json, const velk_error* error) {
  closing_attempt* attempt = context;
  velk_error* refused = velk_device_close(attempt->device);
  if (refused != NULL) {
    snprintf(attempt->result.error_message, sizeof attempt->result.error_message, "%s",
             refused->message);
    attempt->result.error_code = (long long)refused->code;
    velk_error_free(refused);
  }
  (void)json;
  (void)error;
  atomic_fetch_add(&attempt->result.calls, 1);
}

/* With a main-queue thread of the device, answers come without the host running anything, the
 * host's run functions are refused, and a callback cannot close the device. */
static void test_main_queue_thread(void) {
  velk_device* device = open_device(kDayStore, NULL, 1);
  EXPECT_ERROR(velk_main_queue_run_until_idle(device, NULL), VELK_C_ERROR_DOMAIN,
               VELK_ERROR_WRONG_THREAD, "thread of its own");
  velk_manager* manager = NULL;
  EXPECT_OK(velk_manager_new(device, &manager));
  answer body = {0};
  EXPECT_OK(velk_get_body_summary_objc(manager, noon_of_day(device), on_summary, &body));
  CHECK(wait_for(&body));
  CHECK(!body.on_main_thread && strstr(body.json, "body_health") != NULL);

  closing_attempt attempt = {device, {0}};
  EXPECT_OK(
      velk_get_physical_summary_objc(manager, noon_of_day(device), close_from_callback, &attempt));
  CHECK(wait_for(&attempt.result));
  CHECK(attempt.result.error_code == VELK_ERROR_WRONG_THREAD);
  velk_manager_free(manager);
  EXPECT_OK(velk_device_close(device));
}

/* A permission callback that holds the store's thread until the host lets it go, so that the
 * host can act while a query is certainly still out (queries are answered on that thread). */
typedef struct gate {
  pthread_mutex_t mutex;
  pthread_cond_t changed;
  int open;
  answer entered;
} gate;

static void hold_store_thread(void* context, int success, const velk_error* error) {
  gate* g = context;
  (void)success;
  (void)error;
  atomic_fetch_add(&g->entered.calls, 1);
  pthread_mutex_lock(&g->mutex);
  while (!g->open) {
    pthread_cond_wait(&g->changed, &g->mutex);
  }
  pthread_mutex_unlock(&g->mutex);
}

static void release_gate(gate* g) {
  pthread_mutex_lock(&g->mutex);
  g->open = 1;
  pthread_cond_broadcast(&g->changed);
  pthread_mutex_unlock(&g->mutex);
}

/* Waits until everything queued on the store's thread so far has run. */
static void flush_store_thread(velk_permission_extraction* extraction) {
  answer flushed = {0};
  EXPECT_OK(velk_request_sleep_permissions_objc(extraction, on_permission, &flushed));
  CHECK(wait_for(&flushed));
}

/* A manager released while its queries are out: a successful sleep read and the physical and
 * body summaries are dropped; a failed sleep read still reports its error. Closing afterwards
 * does not wait forever for the dropped answers. */
static void test_released_manager(void) {
  velk_device* device = open_device(
      "{\"query_errors\": {\"HKQuantityTypeIdentifierHeartRate\": {\"code\": 5, \"message\": "
      "\"x\"}},"
      " \"samples\": [{\"type\": \"HKCategoryTypeIdentifierSleepAnalysis\","
      " \"start\": \"2024-03-09T23:00:00+01:00\", \"end\": \"2024-03-10T06:00:00+01:00\","
      " \"value\": 3, \"source\": \"com.apple.health.1A2B\"}]}",
      NULL, 0);
  velk_permission_extraction* extraction = NULL;
  EXPECT_OK(velk_permission_extraction_new(device, &extraction));
  const double day = noon_of_day(device);

  gate g = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, 0, {0}};
  EXPECT_OK(velk_request_sleep_permissions_objc(extraction, hold_store_thread, &g));
  CHECK(wait_for(&g.entered));
  velk_manager* manager = NULL;
  EXPECT_OK(velk_manager_new(device, &manager));
  answer sleep = {0}, physical = {0}, body = {0};
  EXPECT_OK(velk_get_sleep_summay_objc(manager, day, on_summary, &sleep));
  EXPECT_OK(velk_get_physical_summary_objc(manager, day, on_summary, &physical));
  EXPECT_OK(velk_get_body_summary_objc(manager, day, on_summary, &body));
  velk_manager_free(manager);
  release_gate(&g);
  flush_store_thread(extraction);
  EXPECT_OK(velk_main_queue_run_for(device, 100));
  CHECK(atomic_load(&sleep.calls) == 0);
  CHECK(atomic_load(&physical.calls) == 0);
  CHECK(atomic_load(&body.calls) == 0);
  velk_permission_extraction_free(extraction);
  EXPECT_OK(velk_device_close(device));

  /* The failing sleep read. */
  device = open_device(
      "{\"query_errors\": {\"HKCategoryTypeIdentifierSleepAnalysis\":"
      " {\"code\": 5, \"message\": \"Authorization not determined\"}}}",
      NULL, 0);
  EXPECT_OK(velk_permission_extraction_new(device, &extraction));
  gate h = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, 0, {0}};
  EXPECT_OK(velk_request_sleep_permissions_objc(extraction, hold_store_thread, &h));
  CHECK(wait_for(&h.entered));
  EXPECT_OK(velk_manager_new(device, &manager));
  answer failed = {0};
  EXPECT_OK(velk_get_sleep_summay_objc(manager, day, on_summary, &failed));
  velk_manager_free(manager);
  release_gate(&h);
  CHECK(wait_for(&failed));
  CHECK(failed.error_code == 5 &&
        strcmp(failed.error_message, "Authorization not determined") == 0);
  velk_permission_extraction_free(extraction);
  EXPECT_OK(velk_device_close(device));
}

/* ----- driver ------------------------------------------------------------------------------- */

typedef struct test_case {
  const char* name;
  void (*run)(void);
} test_case;

static const test_case cases[] = {
    {"bad_arguments", test_bad_arguments},
    {"summaries", test_summaries},
    {"errors_in_callbacks", test_errors_in_callbacks},
    {"device_lifecycle", test_device_lifecycle},
    {"main_queue_thread", test_main_queue_thread},
    {"released_manager", test_released_manager},
};

int main(int argc, char** argv) {
  main_thread_id = pthread_self();
  make_temp_dir();
  int ran = 0;
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    if (argc < 2 || strcmp(argv[1], cases[i].name) == 0) {
      cases[i].run();
      ++ran;
    }
  }
  remove_temp_dir();
  if (ran == 0) {
    fprintf(stderr, "no case named %s\n", argv[1]);
    return 2;
  }
  printf("%d case(s), %d failed check(s)\n", ran, failures);
  return failures == 0 ? 0 : 1;
}
