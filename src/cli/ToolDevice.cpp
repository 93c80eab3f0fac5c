#include "cli/ToolDevice.h"

#include <cstdlib>
#include <filesystem>
#include <utility>

#include "cli/Instant.h"
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
  namespace fs = std::filesystem;
  if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state != '\0') {
    return (fs::path(state) / "velk" / "defaults.sqlite").string();
  }
  const char* home = std::getenv("HOME");
  return (fs::path(home != nullptr ? home : ".") / ".local" / "state" / "velk" / "defaults.sqlite")
      .string();
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
    configuration.now = parseInstant(*options.now, platform::Calendar(configuration.timeZone));
    if (!configuration.now) {
      return Made::failure(inputError("--now: \"" + *options.now + "\" is not an INSTANT"));
    }
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
  return Made::success(configured.value().device);
}

}  // namespace velk::cli
