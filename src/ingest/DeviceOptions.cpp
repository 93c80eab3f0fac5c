#include "velk/DeviceOptions.h"

#include <cstdlib>
#include <filesystem>
#include <limits>
#include <utility>

#include "platform/Iso8601.h"

namespace velk::ingest {
namespace {

// Forms with an offset name their moment themselves; the others are wall times, which the
// calendar places in the device's zone (and past a DST gap). A space may stand for the "T" and
// before the offset, as exports write dates.
constexpr platform::Iso8601Syntax kInstantSyntax{
    .spaceForT = true,
    .secondsOptional = true,
    .fractionDigits = std::numeric_limits<std::size_t>::max(),
    .offsetOptional = true,
    .offsetWithoutColon = true,
    .spaceBeforeOffset = true,
    .dayAlone = true,
};

}  // namespace

std::optional<Date> parseInstant(std::string_view text, const platform::Calendar& calendar) {
  const auto value = platform::readIso8601(text, kInstantSyntax);
  if (!value) {
    return std::nullopt;
  }
  return value->utcOffsetSeconds ? value->moment() : calendar.date(value->components);
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
