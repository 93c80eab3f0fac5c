#include "cli/ToolDevice.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "cli/Instant.h"
#include "platform/HealthDatabase.h"
#include "velk/Calendar.h"
#include "velk/DeviceConfiguration.h"

namespace velk::cli {
namespace {

// Names the option that a configuration fault is about, so that the user knows what to fix.
std::string optionOf(const Error& error) {
  if (error.domain() != ingest::kDeviceConfigurationDomain) {
    return "";  // a data source's own error names its file already
  }
  switch (static_cast<ingest::DeviceConfigurationError>(error.code())) {
    case ingest::DeviceConfigurationError::unknownTimeZone:
      return "--tz: ";
    case ingest::DeviceConfigurationError::emptyLanguage:
      return "--language: ";
    case ingest::DeviceConfigurationError::badOSVersion:
      return "--os-version: ";
    case ingest::DeviceConfigurationError::stateUnusable:
      return "--state: ";
    case ingest::DeviceConfigurationError::conflictingSources:
      return "";
  }
  return "";
}

// `$VARIABLE/velk/file`, else `~/fallback/velk/file`, as the XDG base directories have it.
std::string xdgPath(const char* variable, const char* fallback, const char* file) {
  namespace fs = std::filesystem;
  if (const char* base = std::getenv(variable); base != nullptr && *base != '\0') {
    return (fs::path(base) / "velk" / file).string();
  }
  const char* home = std::getenv("HOME");
  return (fs::path(home != nullptr ? home : ".") / fallback / "velk" / file).string();
}

}  // namespace

Error inputError(std::string message) {
  return Error(kInputErrorDomain, 2, std::move(message));
}

std::string systemTimeZone() {
  if (const char* zone = std::getenv("TZ"); zone != nullptr && *zone != '\0') {
    std::string name = zone[0] == ':' ? zone + 1 : zone;
    if (platform::Calendar::isKnownTimeZone(name)) {
      return name;
    }
  }
  return ingest::hostTimeZone();
}

std::string systemLanguage() {
  const char* lang = std::getenv("LANG");
  std::string tag = lang != nullptr ? lang : "";
  tag = tag.substr(0, tag.find_first_of(".@"));
  if (tag.empty() || tag == "C" || tag == "POSIX") {
    return "en";
  }
  return tag;
}

std::string defaultStatePath() {
  return xdgPath("XDG_STATE_HOME", ".local/state", "defaults.sqlite");
}

std::string defaultDatabasePath() {
  return xdgPath("XDG_DATA_HOME", ".local/share", "health.sqlite");
}

Result<std::shared_ptr<platform::Device>> makeToolDevice(const GlobalOptions& options,
                                                         std::ostream& warnings) {
  using Made = Result<std::shared_ptr<platform::Device>>;

  ingest::DeviceConfiguration configuration;
  configuration.timeZone = options.timeZone.value_or(systemTimeZone());
  configuration.language = options.language.value_or(systemLanguage());
  auto version = ingest::parseOSVersion(options.osVersion);
  if (version.isFailure()) {
    return Made::failure(inputError("--os-version: " + version.error().message()));
  }
  configuration.osVersion = version.value();
  if (options.now) {
    if (!platform::Calendar::isKnownTimeZone(configuration.timeZone)) {
      return Made::failure(inputError("--tz: \"" + configuration.timeZone +
                                      "\" is not a known time zone (use an IANA name such as "
                                      "Europe/Berlin)"));
    }
    auto now = readInstant("--now", *options.now, platform::Calendar(configuration.timeZone));
    if (now.isFailure()) {
      return Made::failure(now.error());
    }
    configuration.now = now.value();
  }
  configuration.statePath = options.statePath.value_or(defaultStatePath());
  if (options.storePath)
    configuration.storePath = *options.storePath;
  if (options.exportPath)
    configuration.exportPath = *options.exportPath;
  if (options.databasePath)
    configuration.databasePath = *options.databasePath;
  if (options.sourcesPath)
    configuration.sourcesPath = *options.sourcesPath;
  if (!options.sourcePriority.empty())
    configuration.sourcePriority = options.sourcePriority;

  auto configured = ingest::makeConfiguredDevice(configuration);
  if (configured.isFailure()) {
    const Error& error = configured.error();
    return Made::failure(inputError(optionOf(error) + error.message()));
  }
  for (const auto& line : configured.value().warnings) {
    warnings << "velk: warning: " << line << "\n";
  }
  if (!options.sourcePriority.empty()) {
    const auto held = configured.value().device->healthDatabase()->sourceBundleIdentifiers();
    for (const auto& identifier : options.sourcePriority) {
      if (!std::binary_search(held.begin(), held.end(), identifier)) {
        warnings << "velk: warning: --source-priority: no source of the data has the bundle "
                    "identifier \""
                 << identifier << "\" (velk info lists them)\n";
      }
    }
  }
  return Made::success(configured.value().device);
}

}  // namespace velk::cli
