/* Drives the C interface from C, as a host written in C would. Usage: velk_capi_tests CASE (the
 * cases are listed in `cases` at the bottom); each case says what it covers. */
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

/* Checks that `error` is none (when `domain` is NULL) or an error of `domain` with `code` whose
 * message contains `part`, and frees it. */
static void expect(velk_error* error, const char* domain, int64_t code, const char* part,
                   int line) {
  const int as_expected = domain == NULL
                              ? error == NULL
                              : error != NULL && strcmp(error->domain, domain) == 0 &&
                                    error->code == code && strstr(error->message, part) != NULL;
  if (!as_expected) {
    fprintf(stderr, "%s:%d: expected %s %lld \"...%s...\", got %s\n", __FILE__, line,
            domain == NULL ? "no error" : domain, (long long)code, part == NULL ? "" : part,
            error == NULL ? "no error" : error->message);
    ++failures;
  }
  velk_error_free(error);
}
#define EXPECT_OK(call) expect((call), NULL, 0, NULL, __LINE__)
#define EXPECT_ERROR(call, domain, code, part) expect((call), (domain), (code), (part), __LINE__)
#define EXPECT_C_ERROR(call, code, part) EXPECT_ERROR(call, VELK_C_ERROR_DOMAIN, code, part)
#define EXPECT_INVALID(call, part) EXPECT_C_ERROR(call, VELK_ERROR_INVALID_ARGUMENT, part)
#define EXPECT_CLOSED(call) EXPECT_C_ERROR(call, VELK_ERROR_DEVICE_CLOSED, "closed")

/* ----- fixtures ----------------------------------------------------------------------------- */

static char temp_dir[] = "/tmp/velk-capi-XXXXXX";

/* A path in the temporary folder; the last four stay valid. */
static const char* temp_path(const char* name) {
  static char paths[4][320];
  static int next = 0;
  char* path = paths[next++ % 4];
  snprintf(path, sizeof paths[0], "%s/%s", temp_dir, name);
  return path;
}

static const char* write_store(const char* name, const char* json) {
  const char* path = temp_path(name);
  FILE* file = fopen(path, "w");
  if (file == NULL || fputs(json, file) < 0 || fclose(file) != 0) {
    perror(path);
    exit(2);
  }
  return path;
}

/* A sample of 2024-03-`start` to 2024-03-`end` (day and time of day) in Berlin time. */
#define SAMPLE(type, start, end, value)                                                           \
  "{\"type\": \"HK" type "\", \"start\": \"2024-03-" start ":00+01:00\", \"end\": \"2024-03-" end \
  ":00+01:00\", \"value\": " value "}"
#define SLEEP_NIGHT SAMPLE("CategoryTypeIdentifierSleepAnalysis", "09T23:00", "10T06:00", "3")

/* A night of sleep before 2024-03-10, steps that day and a weight. */
static const char* const kDayStore = "{\"samples\": [" SLEEP_NIGHT "," SAMPLE(
    "QuantityTypeIdentifierStepCount", "10T09:00", "10T09:30",
    "4321") "," SAMPLE("QuantityTypeIdentifierBodyMass", "08T07:00", "08T07:00", "72.6") "]}";

/* A store that refuses permissions and fails every sleep read. */
static const char* const kFailingStore =
    "{\"authorization\": {\"success\": true, \"error\": {\"code\": 4, \"message\": \"denied\"}},"
    " \"query_errors\": {\"HKCategoryTypeIdentifierSleepAnalysis\":"
    " {\"code\": 5, \"message\": \"Authorization not determined\"}}}";

/* A device with a manager and a permission extraction; `day` is noon of 2024-03-10 there. */
typedef struct session {
  velk_device* device;
  velk_manager* manager;
  velk_permission_extraction* extraction;
  double day;
} session;

/* A device over a store file in Berlin, its clock fixed, its defaults in `state` (NULL: memory). */
static session open_session(const char* store_json, const char* state, int main_thread) {
  velk_config* config = velk_config_new();
  EXPECT_OK(velk_config_set_store_file(config, write_store("store.json", store_json)));
  EXPECT_OK(velk_config_set_time_zone(config, "Europe/Berlin"));
  EXPECT_OK(velk_config_set_fixed_now(config, 731851200.0)); /* 2024-03-10T13:00:00Z */
  EXPECT_OK(velk_config_set_state_file(config, state));
  EXPECT_OK(velk_config_set_main_queue_thread(config, main_thread));
  session s = {NULL, NULL, NULL, 0};
  EXPECT_OK(velk_device_open(config, &s.device));
  velk_config_free(config);
  if (s.device == NULL) {
    fprintf(stderr, "cannot go on without a device\n");
    exit(1);
  }
  EXPECT_OK(velk_manager_new(s.device, &s.manager));
  EXPECT_OK(velk_permission_extraction_new(s.device, &s.extraction));
  EXPECT_OK(velk_device_date(s.device, 2024, 3, 10, 12, 0, 0, &s.day));
  return s;
}

static void close_session(session* s) {
  velk_manager_free(s->manager);
  velk_permission_extraction_free(s->extraction);
  EXPECT_OK(velk_device_close(s->device));
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
  velk_device* device_to_close; /* for close_from_callback */
  atomic_int open;              /* for hold_store_thread */
} answer;

static pthread_t main_thread_id;

static void on_summary(void* context, const char* json, const velk_error* error) {
  answer* into = context;
  into->on_main_thread = pthread_equal(pthread_self(), main_thread_id);
  CHECK((json == NULL) != (error == NULL));
  if (json != NULL)
    snprintf(into->json, sizeof into->json, "%s", json);
  if (error != NULL) {
    snprintf(into->error_domain, sizeof into->error_domain, "%s", error->domain);
    into->error_code = (long long)error->code;
    snprintf(into->error_message, sizeof into->error_message, "%s", error->message);
  }
  atomic_fetch_add(&into->calls, 1);
}

static void on_permission(void* context, int success, const velk_error* error) {
  answer* into = context;
  into->success = success;
  CHECK(error == NULL || success == 0);
  on_summary(into, error == NULL ? "" : NULL, error);
}

/* Tries to close the device from a callback and records the code of the refusal. */
static void close_from_callback(void* context, const char* json, const velk_error* error) {
  answer* into = context;
  velk_error* refused = velk_device_close(into->device_to_close);
  into->error_code = refused == NULL ? 0 : (long long)refused->code;
  velk_error_free(refused);
  (void)json;
  (void)error;
  atomic_fetch_add(&into->calls, 1);
}

static void ask_all_three(session* s, answer* sleep, answer* physical, answer* body) {
  EXPECT_OK(velk_get_sleep_summary_objc(s->manager, s->day, on_summary, sleep));
  EXPECT_OK(velk_get_physical_summary_objc(s->manager, s->day, on_summary, physical));
  EXPECT_OK(velk_get_body_summary_objc(s->manager, s->day, on_summary, body));
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
  for (int i = 0; i < 500 && !answered(into); ++i)
    sleep_ms(10);
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
  EXPECT_INVALID(velk_get_sleep_summary_objc(NULL, 0, on_summary, NULL), "manager is NULL");
  int has = 0;
  double date = 0;
  EXPECT_INVALID(velk_get_last_extraction_date(NULL, VELK_BODY_SUMMARY, &has, &date), "manager");
  velk_manager_free(NULL);
  velk_permission_extraction* extraction = NULL;
  EXPECT_INVALID(velk_permission_extraction_new(NULL, &extraction), "device is NULL");
  EXPECT_INVALID(velk_request_all_permissions_objc(NULL, on_permission, NULL), "extraction");
  velk_permission_extraction_free(NULL);
  EXPECT_INVALID(velk_main_queue_run_until_idle(NULL, NULL), "device is NULL");

  velk_config* config = velk_config_new();
  EXPECT_INVALID(velk_config_set_time_zone(config, "Mars/Olympus_Mons"), "Mars/Olympus_Mons");
  EXPECT_INVALID(velk_config_set_time_zone(config, NULL), "identifier is NULL");
  EXPECT_INVALID(velk_config_set_language(config, ""), "empty");
  EXPECT_INVALID(velk_config_set_os_version(config, "17"), "\"17\"");
  EXPECT_OK(velk_config_set_os_version(config, "15.4.1"));
  EXPECT_INVALID(velk_config_set_store_file(config, ""), "empty");
  EXPECT_INVALID(velk_config_set_fixed_now(config, 1.0 / 0.0), "finite");

  /* A path that cannot be read fails at open, with the reader's error, and leaves no device. */
  EXPECT_OK(velk_config_set_store_file(config, temp_path("missing.json")));
  device = (velk_device*)&device;
  velk_error* error = velk_device_open(config, &device);
  CHECK(error != NULL && device == NULL && strstr(error->message, "missing.json") != NULL);
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
  EXPECT_INVALID(velk_get_sleep_summary_objc(manager, 0, NULL, NULL), "callback is NULL");
  EXPECT_INVALID(velk_get_last_extraction_date(manager, (velk_data_type)7, &has, &date), "kind 7");
  EXPECT_INVALID(velk_get_last_extraction_date_of_body(manager, NULL, &date), "has_date_out");
  EXPECT_INVALID(velk_device_date(device, 2024, 3, 10, 12, 0, 0, NULL), "date_out is NULL");
  /* Fields outside their ranges are refused, never carried into the next month or year. */
  EXPECT_INVALID(velk_device_date(device, 2024, 13, 10, 12, 0, 0, &date), "no such wall time");
  EXPECT_INVALID(velk_device_date(device, 2024, 3, 40, 12, 0, 0, &date), "no such wall time");
  EXPECT_INVALID(velk_device_date(device, 2023, 2, 29, 12, 0, 0, &date), "no such wall time");
  EXPECT_INVALID(velk_device_date(device, 2000000000, 3, 10, 12, 0, 0, &date), "year 1-9999");
  EXPECT_INVALID(velk_device_date(device, 2024, 3, 10, 24, 0, 0, &date), "no such wall time");
  EXPECT_INVALID(velk_device_date(device, 2024, 3, 10, 12, 0, -1, &date), "no such wall time");
  EXPECT_OK(velk_device_date(device, 2024, 2, 29, 23, 59, 59, &date));
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
 * the state file, and the published per-kind getters read the sleep entry. A granted request is
 * (1, no error). */
static void test_summaries(void) {
  const char* state = temp_path("defaults.sqlite");
  session s = open_session(kDayStore, state, 0);
  answer sleep = {0}, physical = {0}, body = {0}, granted = {0};
  ask_all_three(&s, &sleep, &physical, &body);
  CHECK(wait_for(&sleep));
  CHECK(!sleep.on_main_thread);
  CHECK(strstr(sleep.json, "\"sleep_duration_seconds\":25200") != NULL);
  sleep_ms(50);
  CHECK(atomic_load(&physical.calls) == 0 && atomic_load(&body.calls) == 0);

  int satisfied = 0;
  EXPECT_OK(velk_main_queue_run_until(s.device, answered, &physical, 5000, &satisfied));
  CHECK(satisfied);
  EXPECT_OK(velk_main_queue_run_until(s.device, answered, &body, 5000, &satisfied));
  CHECK(satisfied);
  CHECK(physical.on_main_thread && body.on_main_thread);
  CHECK(strstr(physical.json, "\"steps_per_day_number\":4321") != NULL);
  CHECK(strstr(body.json, "\"weight_kg_number\":72") != NULL);
  size_t ran = 99;
  EXPECT_OK(velk_main_queue_run_until_idle(s.device, &ran));
  CHECK(ran == 0);
  CHECK(atomic_load(&sleep.calls) == 1 && atomic_load(&physical.calls) == 1 &&
        atomic_load(&body.calls) == 1);
  EXPECT_OK(velk_request_all_permissions_objc(s.extraction, on_permission, &granted));
  CHECK(wait_for(&granted));
  CHECK(granted.success == 1 && granted.error_domain[0] == '\0');
  close_session(&s);

  /* A new device over the same state file sees the dates. Another night moves the sleep entry;
   * the per-kind getters follow it, the general one keeps to its kind. */
  s = open_session(kDayStore, state, 0);
  int has = 0;
  double date = 0;
  EXPECT_OK(velk_get_last_extraction_date(s.manager, VELK_PHYSICAL_SUMMARY, &has, &date));
  CHECK(has == 1 && date == s.day);
  answer again = {0};
  EXPECT_OK(velk_get_sleep_summary_objc(s.manager, s.day + 86400, on_summary, &again));
  CHECK(wait_for(&again));
  EXPECT_OK(velk_get_last_extraction_date_of_sleep(s.manager, &has, &date));
  CHECK(has == 1 && date == s.day + 86400);
  EXPECT_OK(velk_get_last_extraction_date_of_physical(s.manager, &has, &date));
  CHECK(has == 1 && date == s.day + 86400);
  EXPECT_OK(velk_get_last_extraction_date_of_body(s.manager, &has, &date));
  CHECK(has == 1 && date == s.day + 86400);
  EXPECT_OK(velk_get_last_extraction_date(s.manager, VELK_BODY_SUMMARY, &has, &date));
  CHECK(has == 1 && date == s.day);
  close_session(&s);
}

static void on_debug_line(void* context, const char* line) {
  char* into = context;
  strncat(into, line, 255 - strlen(into));
  strncat(into, "\n", 255 - strlen(into));
}

/* Without health data a request fails before it returns, on the caller's thread, and says so on
 * the debug output, which the host can take. (A refused request and a failed summary are shown by
 * released_manager.) */
static void test_errors_in_callbacks(void) {
  session s = open_session("{\"health_data_available\": false}", NULL, 0);
  char debug_output[256] = "";
  velk_set_debug_output(on_debug_line, debug_output);
  answer unavailable = {0};
  EXPECT_OK(velk_request_body_permissions_objc(s.extraction, on_permission, &unavailable));
  velk_set_debug_output(NULL, NULL);
  CHECK(atomic_load(&unavailable.calls) == 1 && unavailable.on_main_thread);
  CHECK(strcmp(unavailable.error_message, "apple health kit is not avaible un your device") == 0);
  CHECK(strcmp(debug_output, "\"No health data is available.\"\n") == 0);
  close_session(&s);
}

/* One device at a time; after closing, its handles fail cleanly and can still be released. */
static void test_device_lifecycle(void) {
  session s = open_session("{}", NULL, 0);
  velk_config* config = velk_config_new();
  velk_device* second = (velk_device*)&second;
  EXPECT_C_ERROR(velk_device_open(config, &second), VELK_ERROR_DEVICE_BUSY, "another device");
  CHECK(second == NULL);

  answer dropped = {0}, refused = {0};
  EXPECT_OK(velk_get_physical_summary_objc(s.manager, s.day, on_summary, &dropped));
  EXPECT_OK(velk_device_close(s.device)); /* the physical answer was due: it is dropped */
  CHECK(atomic_load(&dropped.calls) == 0);
  int has = 0;
  double date = 0;
  EXPECT_CLOSED(velk_get_body_summary_objc(s.manager, 0, on_summary, &refused));
  EXPECT_CLOSED(velk_get_last_extraction_date_of_sleep(s.manager, &has, &date));
  EXPECT_CLOSED(velk_request_sleep_permissions_objc(s.extraction, on_permission, &refused));
  CHECK(atomic_load(&refused.calls) == 0);

  /* The process may open a device again although old handles still exist. */
  EXPECT_OK(velk_device_open(config, &s.device));
  close_session(&s);
  velk_config_free(config);
}

/* With a main-queue thread of the device, answers come without the host running anything, the
 * host's run functions are refused, and a callback cannot close the device. */
static void test_main_queue_thread(void) {
  session s = open_session(kDayStore, NULL, 1);
  EXPECT_C_ERROR(velk_main_queue_run_until_idle(s.device, NULL), VELK_ERROR_WRONG_THREAD,
                 "thread of its own");
  answer body = {0}, attempt = {0};
  EXPECT_OK(velk_get_body_summary_objc(s.manager, s.day, on_summary, &body));
  CHECK(wait_for(&body));
  CHECK(!body.on_main_thread && strstr(body.json, "body_health") != NULL);

  attempt.device_to_close = s.device;
  EXPECT_OK(velk_get_physical_summary_objc(s.manager, s.day, close_from_callback, &attempt));
  CHECK(wait_for(&attempt));
  CHECK(attempt.error_code == VELK_ERROR_WRONG_THREAD);
  close_session(&s);
}

/* A permission callback that records its answer, then holds the store's thread until `open` is
 * set, so that the host can act while a query is certainly still out (queries are answered on
 * that thread). */
static void hold_store_thread(void* context, int success, const velk_error* error) {
  answer* gate = context;
  on_permission(gate, success, error);
  while (!atomic_load(&gate->open))
    sleep_ms(1);
}

static void hold(session* s, answer* gate) {
  EXPECT_OK(velk_request_physical_permissions_objc(s->extraction, hold_store_thread, gate));
  CHECK(wait_for(gate));
}

/* A manager released while its queries are out: a successful sleep read and the physical and
 * body summaries are dropped (and closing does not wait forever for them); a failed sleep read
 * still reports (no document, the store's domain, code and message). A refused permission
 * request is (0, the store's error), on the store's thread. */
static void test_released_manager(void) {
  session s = open_session(kDayStore, NULL, 0);
  answer gate = {0};
  hold(&s, &gate);
  answer sleep = {0}, physical = {0}, body = {0}, flushed = {0};
  ask_all_three(&s, &sleep, &physical, &body);
  velk_manager_free(s.manager);
  s.manager = NULL;
  atomic_store(&gate.open, 1);
  /* Wait until everything queued on the store's thread so far has run. */
  EXPECT_OK(velk_request_sleep_permissions_objc(s.extraction, on_permission, &flushed));
  CHECK(wait_for(&flushed));
  EXPECT_OK(velk_main_queue_run_for(s.device, 100));
  CHECK(atomic_load(&sleep.calls) == 0);
  CHECK(atomic_load(&physical.calls) == 0);
  CHECK(atomic_load(&body.calls) == 0);
  close_session(&s);

  s = open_session(kFailingStore, NULL, 0);
  answer held = {0}, failed = {0};
  hold(&s, &held);
  CHECK(held.success == 0 && !held.on_main_thread && held.error_code == 4);
  CHECK(strcmp(held.error_domain, "com.apple.healthkit") == 0);
  EXPECT_OK(velk_get_sleep_summary_objc(s.manager, s.day, on_summary, &failed));
  velk_manager_free(s.manager);
  s.manager = NULL;
  atomic_store(&held.open, 1);
  CHECK(wait_for(&failed));
  CHECK(strcmp(failed.error_domain, "com.apple.healthkit") == 0 && failed.error_code == 5);
  CHECK(strcmp(failed.error_message, "Authorization not determined") == 0);
  close_session(&s);
}

/* ----- driver ------------------------------------------------------------------------------- */

#define CASE(name) \
  { #name, test_##name }
static const struct {
  const char* name;
  void (*run)(void);
} cases[] = {CASE(bad_arguments),    CASE(summaries),         CASE(errors_in_callbacks),
             CASE(device_lifecycle), CASE(main_queue_thread), CASE(released_manager)};

int main(int argc, char** argv) {
  main_thread_id = pthread_self();
  if (mkdtemp(temp_dir) == NULL) {
    perror("mkdtemp");
    return 2;
  }
  int ran = 0;
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    if (argc < 2 || strcmp(argv[1], cases[i].name) == 0) {
      cases[i].run();
      ++ran;
    }
  }
  char command[300];
  snprintf(command, sizeof command, "rm -rf '%s'", temp_dir);
  if (system(command) != 0)
    fprintf(stderr, "could not remove %s\n", temp_dir);
  if (ran == 0) {
    fprintf(stderr, "no case named %s\n", argv[1]);
    return 2;
  }
  printf("%d case(s), %d failed check(s)\n", ran, failures);
  return failures == 0 ? 0 : 1;
}
