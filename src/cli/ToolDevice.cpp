#include "cli/ToolDevice.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "cli/Instant.h"
#include "platform/HealthDatabase.h"
#include "velk/Calendar.h"

namespace velk::cli {
namespace {

// The option a configuration fault is about, as the user typed it, so that they know what to fix.
std::string optionPrefix(const Error& error) {
  const auto option = ingest::deviceOptionOf(error);
  if (!option) {
    return "";
  }
  switch (*option) {
    case ingest::DeviceOption::timeZone:
      return "--tz: ";
    case ingest::DeviceOption::language:
      return "--language: ";
    case ingest::DeviceOption::now:
      return "--now: ";
    case ingest::DeviceOption::osVersion:
      return "--os-version: ";
    case ingest::DeviceOption::state:
      return "--state: ";
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

std::string defaultDatabasePath() {
  return xdgPath("XDG_DATA_HOME", ".local/share", "health.sqlite");
}

Result<std::shared_ptr<platform::Device>> makeToolDevice(const GlobalOptions& options,
                                                         std::ostream& warnings) {
  using Made = Result<std::shared_ptr<platform::Device>>;
  auto configured = ingest::makeDeviceFromOptions(options);
  if (configured.isFailure()) {
    const Error& error = configured.error();
    if (ingest::deviceOptionOf(error) == ingest::DeviceOption::now && options.now) {
      // The tool says more than the options do: which day does not exist, which forms it reads.
      const platform::Calendar calendar(options.timeZone.value_or(ingest::systemTimeZone()));
      if (auto now = readInstant("--now", *options.now, calendar); now.isFailure()) {
        return Made::failure(now.error());
      }
    }
    return Made::failure(inputError(optionPrefix(error) + error.message()));
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
