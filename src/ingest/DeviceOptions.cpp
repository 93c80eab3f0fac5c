#include "velk/DeviceOptions.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "platform/DateFormatter.h"

namespace velk::ingest {
namespace {

// The forms are tried in turn; each must match the whole text. Forms with an offset name their
// moment themselves; local forms are read as wall time, first in UTC to take their fields apart,
// then put together again in the device's zone by the calendar (which also settles DST gaps).
constexpr std::array kOffsetPatterns{
    "yyyy-MM-dd'T'HH:mm:ss.SSSXXX", "yyyy-MM-dd'T'HH:mm:ss.SSXXX", "yyyy-MM-dd'T'HH:mm:ss.SXXX",
    "yyyy-MM-dd'T'HH:mm:ssXXX",     "yyyy-MM-dd'T'HH:mmXXX",
};
constexpr std::array kLocalPatterns{
    "yyyy-MM-dd'T'HH:mm:ss.SSS", "yyyy-MM-dd'T'HH:mm:ss.SS", "yyyy-MM-dd'T'HH:mm:ss.S",
    "yyyy-MM-dd'T'HH:mm:ss",     "yyyy-MM-dd'T'HH:mm",       "yyyy-MM-dd",
};

}  // namespace

std::optional<Date> parseInstant(std::string_view text, const platform::Calendar& calendar) {
  const std::string owned(text);
  for (const char* pattern : kOffsetPatterns) {
    if (auto moment = platform::DateFormatter(pattern, "UTC", "en_US_POSIX").date(owned)) {
      return moment;
    }
  }
  const platform::Calendar utc("UTC");
  for (const char* pattern : kLocalPatterns) {
    if (auto wallTime = platform::DateFormatter(pattern, "UTC", "en_US_POSIX").date(owned)) {
      return calendar.date(utc.components(*wallTime));
    }
  }
  return std::nullopt;
}

std::string systemTimeZone() {
  if (const char* zone = std::getenv("TZ"); zone != nullptr && *zone != '\0') {
    std::string name = zone[0] == ':' ? zone + 1 : zone;
    if (platform::Calendar::isKnownTimeZone(name)) {
      return name;
    }
  }
  return hostTimeZone();
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

std::optional<DeviceOption> deviceOptionOf(const Error& error) {
  if (error.domain() != kDeviceConfigurationDomain) {
    return std::nullopt;  // a data source's own error names its file already
  }
  switch (static_cast<DeviceConfigurationError>(error.code())) {
    case DeviceConfigurationError::unknownTimeZone:
      return DeviceOption::timeZone;
    case DeviceConfigurationError::emptyLanguage:
      return DeviceOption::language;
    case DeviceConfigurationError::badOSVersion:
      return DeviceOption::osVersion;
    case DeviceConfigurationError::stateUnusable:
      return DeviceOption::state;
    case DeviceConfigurationError::badInstant:
      return DeviceOption::now;
    case DeviceConfigurationError::conflictingSources:
      return std::nullopt;
  }
  return std::nullopt;
}

Result<ConfiguredDevice> makeDeviceFromOptions(const DeviceOptions& options) {
  using Made = Result<ConfiguredDevice>;
  DeviceConfiguration configuration;
  configuration.timeZone = options.timeZone.value_or(systemTimeZone());
  configuration.language = options.language.value_or(systemLanguage());
  auto version = parseOSVersion(options.osVersion);
  if (version.isFailure()) {
    return Made::failure(version.error());
  }
  configuration.osVersion = version.value();
  if (options.now) {
    // The clock is read in the zone, so the zone must be known before the calendar is built.
    if (!platform::Calendar::isKnownTimeZone(configuration.timeZone)) {
      return makeConfiguredDevice(configuration);  // fails with unknownTimeZone
    }
    configuration.now = parseInstant(*options.now, platform::Calendar(configuration.timeZone));
    if (!configuration.now) {
      return Made::failure(deviceConfigurationError(
          DeviceConfigurationError::badInstant,
          "\"" + *options.now + "\" is not a moment such as 2024-03-10T08:30:00+01:00, " +
              "2024-03-10T08:30 or 2024-03-10"));
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
  return makeConfiguredDevice(configuration);
}

}  // namespace velk::ingest
