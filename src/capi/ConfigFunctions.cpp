// velk_config_*: a configuration is a DeviceConfiguration filled field by field. Values that can
// be checked without touching the file system are checked here, so that the error names the
// setter; files are read when the device opens.
#include <cmath>
#include <new>
#include <optional>
#include <string>

#include "Guarded.h"
#include "Handles.h"
#include "velk/Calendar.h"

using velk::Error;
using velk::capi::guarded;
using velk::capi::interfaceError;
using velk::capi::nullArgument;

namespace {

using OptionalPath = std::optional<std::filesystem::path>;

// NULL removes the path; an empty text is a mistake, not a request for the current folder.
std::optional<Error> readPath(const char* path, const char* setter, OptionalPath& target) {
  if (path == nullptr) {
    target.reset();
    return std::nullopt;
  }
  if (*path == '\0') {
    return interfaceError(VELK_ERROR_INVALID_ARGUMENT, std::string(setter) + ": the path is empty");
  }
  target = std::filesystem::path(path);
  return std::nullopt;
}

// The three data sources exclude each other: the one set last wins.
velk_error* setSource(velk_config* config, const char* path, const char* setter,
                      OptionalPath velk::ingest::DeviceConfiguration::*source) {
  return guarded([&]() -> std::optional<Error> {
    if (config == nullptr) {
      return nullArgument("config");
    }
    OptionalPath chosen;
    if (auto error = readPath(path, setter, chosen)) {
      return error;
    }
    auto& configuration = config->configuration;
    configuration.storePath.reset();
    configuration.exportPath.reset();
    configuration.databasePath.reset();
    configuration.*source = std::move(chosen);
    return std::nullopt;
  });
}

}  // namespace

extern "C" {

velk_config* velk_config_new(void) {
  try {
    auto* config = new velk_config;
    config->configuration.timeZone = velk::ingest::hostTimeZone();
    return config;
  } catch (...) {
    return nullptr;
  }
}

void velk_config_free(velk_config* config) {
  delete config;
}

velk_error* velk_config_set_store_file(velk_config* config, const char* path) {
  return setSource(config, path, "velk_config_set_store_file",
                   &velk::ingest::DeviceConfiguration::storePath);
}

velk_error* velk_config_set_export(velk_config* config, const char* path) {
  return setSource(config, path, "velk_config_set_export",
                   &velk::ingest::DeviceConfiguration::exportPath);
}

velk_error* velk_config_set_database(velk_config* config, const char* path) {
  return setSource(config, path, "velk_config_set_database",
                   &velk::ingest::DeviceConfiguration::databasePath);
}

velk_error* velk_config_set_export_sources(velk_config* config, const char* path) {
  return guarded([&]() -> std::optional<Error> {
    if (config == nullptr) {
      return nullArgument("config");
    }
    return readPath(path, "velk_config_set_export_sources", config->configuration.sourcesPath);
  });
}

velk_error* velk_config_set_state_file(velk_config* config, const char* path) {
  return guarded([&]() -> std::optional<Error> {
    if (config == nullptr) {
      return nullArgument("config");
    }
    return readPath(path, "velk_config_set_state_file", config->configuration.statePath);
  });
}

velk_error* velk_config_set_time_zone(velk_config* config, const char* identifier) {
  return guarded([&]() -> std::optional<Error> {
    if (config == nullptr) {
      return nullArgument("config");
    }
    if (identifier == nullptr) {
      return nullArgument("identifier");
    }
    if (!velk::platform::Calendar::isKnownTimeZone(identifier)) {
      return interfaceError(VELK_ERROR_INVALID_ARGUMENT,
                            std::string("\"") + identifier +
                                "\" is not a known time zone (use an IANA name such as "
                                "Europe/Berlin)");
    }
    config->configuration.timeZone = identifier;
    return std::nullopt;
  });
}

velk_error* velk_config_set_language(velk_config* config, const char* tag) {
  return guarded([&]() -> std::optional<Error> {
    if (config == nullptr) {
      return nullArgument("config");
    }
    if (tag == nullptr) {
      return nullArgument("tag");
    }
    if (*tag == '\0') {
      return interfaceError(VELK_ERROR_INVALID_ARGUMENT, "the language tag is empty");
    }
    config->configuration.language = tag;
    return std::nullopt;
  });
}

velk_error* velk_config_set_os_version(velk_config* config, const char* version) {
  return guarded([&]() -> std::optional<Error> {
    if (config == nullptr) {
      return nullArgument("config");
    }
    if (version == nullptr) {
      return nullArgument("version");
    }
    auto parsed = velk::ingest::parseOSVersion(version);
    if (parsed.isFailure()) {
      return interfaceError(VELK_ERROR_INVALID_ARGUMENT, parsed.error().message());
    }
    config->configuration.osVersion = parsed.value();
    return std::nullopt;
  });
}

velk_error* velk_config_set_fixed_now(velk_config* config, double reference_seconds) {
  return guarded([&]() -> std::optional<Error> {
    if (config == nullptr) {
      return nullArgument("config");
    }
    if (!std::isfinite(reference_seconds)) {
      return interfaceError(VELK_ERROR_INVALID_ARGUMENT, "the fixed now is not a finite number");
    }
    config->configuration.now = velk::Date::fromReferenceSeconds(reference_seconds);
    return std::nullopt;
  });
}

velk_error* velk_config_set_system_clock(velk_config* config) {
  return guarded([&]() -> std::optional<Error> {
    if (config == nullptr) {
      return nullArgument("config");
    }
    config->configuration.now.reset();
    return std::nullopt;
  });
}

velk_error* velk_config_set_main_queue_thread(velk_config* config, int start_thread) {
  return guarded([&]() -> std::optional<Error> {
    if (config == nullptr) {
      return nullArgument("config");
    }
    config->runMainQueueThread = start_thread != 0;
    return std::nullopt;
  });
}

}  // extern "C"
