/*
 * Prints the three summary documents (sleep, physical, body) of one day of an Apple Health export,
 * or of a database made from one by `velk import`, using the C interface of libvelk.
 *
 *   print_day EXPORT|DATABASE TIME_ZONE YYYY-MM-DD
 *   print_day data/sample/watch5-2020/export.xml Africa/Johannesburg 2020-04-13
 *   print_day ~/.local/share/velk/health.sqlite Africa/Johannesburg 2020-04-13
 *
 * Build: cc print_day.c $(pkg-config --cflags --libs velk)
 *
 * The program runs the main queue itself (it has no run loop of its own): the physical and body
 * documents are delivered there. The sleep document arrives on the health store's thread, so each
 * callback only copies its text and raises a flag that the main thread waits for.
 */
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <velk/velk.h>

typedef struct document {
  const char* kind;
  char* json; /* a copy: the callback's text lives only until the callback returns */
  char* error;
  atomic_int done;
} document;

static char* copy(const char* text) {
  char* result = malloc(strlen(text) + 1);
  if (result != NULL) {
    strcpy(result, text);
  }
  return result;
}

static void on_document(void* context, const char* json, const velk_error* error) {
  document* into = context;
  if (error != NULL) {
    into->error = copy(error->message);
  } else {
    into->json = copy(json);
  }
  atomic_store(&into->done, 1);
}

static int all_done(void* context) {
  document* documents = context;
  for (int i = 0; i < 3; ++i) {
    if (!atomic_load(&documents[i].done)) {
      return 0;
    }
  }
  return 1;
}

/* Prints the error, frees it, and says whether there was one. */
static int failed(velk_error* error, const char* what) {
  if (error == NULL) {
    return 0;
  }
  fprintf(stderr, "print_day: %s: %s (%s %lld)\n", what, error->message, error->domain,
          (long long)error->code);
  velk_error_free(error);
  return 1;
}

/* Whether the file is an SQLite database (a `velk import`) rather than an export. */
static int is_database(const char* path) {
  char header[16] = {0};
  FILE* file = fopen(path, "rb");
  if (file == NULL) {
    return 0; /* the export reader says what is wrong with it */
  }
  const size_t got = fread(header, 1, sizeof header, file);
  fclose(file);
  return got == sizeof header && memcmp(header, "SQLite format 3", 16) == 0;
}

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: print_day EXPORT|DATABASE TIME_ZONE YYYY-MM-DD\n");
    return 2;
  }
  int year = 0, month = 0, day = 0;
  if (sscanf(argv[3], "%d-%d-%d", &year, &month, &day) != 3) {
    fprintf(stderr, "print_day: %s is not a date such as 2020-04-13\n", argv[3]);
    return 2;
  }

  velk_config* config = velk_config_new();
  if (config == NULL ||
      (is_database(argv[1]) ? failed(velk_config_set_database(config, argv[1]), "database")
                            : failed(velk_config_set_export(config, argv[1]), "export")) ||
      failed(velk_config_set_time_zone(config, argv[2]), "time zone")) {
    velk_config_free(config);
    return 1;
  }
  velk_device* device = NULL;
  int status = failed(velk_device_open(config, &device), "open");
  velk_config_free(config);
  if (status != 0) {
    return 1;
  }

  velk_manager* manager = NULL;
  double noon = 0;
  document documents[3] = {
      {"sleep", NULL, NULL, 0}, {"physical", NULL, NULL, 0}, {"body", NULL, NULL, 0}};
  if (failed(velk_manager_new(device, &manager), "manager") ||
      failed(velk_device_date(device, year, month, day, 12, 0, 0, &noon), "date") ||
      failed(velk_get_sleep_summary_objc(manager, noon, on_document, &documents[0]), "sleep") ||
      failed(velk_get_physical_summary_objc(manager, noon, on_document, &documents[1]),
             "physical") ||
      failed(velk_get_body_summary_objc(manager, noon, on_document, &documents[2]), "body")) {
    status = 1;
  } else {
    int satisfied = 0;
    if (failed(velk_main_queue_run_until(device, all_done, documents, 60000, &satisfied),
               "main queue") ||
        !satisfied) {
      fprintf(stderr, "print_day: the documents did not arrive\n");
      status = 1;
    }
  }

  for (int i = 0; i < 3; ++i) {
    if (documents[i].json != NULL) {
      printf("%s: %s\n", documents[i].kind, documents[i].json);
    } else if (documents[i].error != NULL) {
      fprintf(stderr, "print_day: %s: %s\n", documents[i].kind, documents[i].error);
      status = 1;
    }
    free(documents[i].json);
    free(documents[i].error);
  }
  velk_manager_free(manager);
  if (failed(velk_device_close(device), "close")) {
    status = 1;
  }
  return status;
}
