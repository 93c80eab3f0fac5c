#include "cli/ToolDevice.h"

#include <utility>

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

}  // namespace

Error inputError(std::string message) {
  return Error(kInputErrorDomain, 2, std::move(message));
}

Result<std::shared_ptr<platform::Device>> makeToolDevice(const GlobalOptions& options,
                                                         std::ostream& warnings) {
  using Made = Result<std::shared_ptr<platform::Device>>;
  auto configured = ingest::makeDeviceFromOptions(options);
  if (configured.isFailure()) {
    const Error& error = configured.error();
    return Made::failure(inputError(optionPrefix(error) + error.message()));
  }
  for (const auto& line : configured.value().warnings) {
    warnings << "velk: warning: " << line << "\n";
  }
  return Made::success(configured.value().device);
}

}  // namespace velk::cli
