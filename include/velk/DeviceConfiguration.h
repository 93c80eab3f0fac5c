// How a host outside the phone describes the device the library runs on, and the one function that
// builds that device: time zone, language, OS version, clock, the user-defaults file and the health
// database filled from a data source (a store file, an export, or an imported database).
//
// The tool and the C interface both build their device here, so that the same options mean the
// same thing in both. Faults of the configuration itself come back in kDeviceConfigurationDomain;
// faults of a data source (an unreadable store file, a damaged export) pass on the reader's own
// error unchanged.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "velk/Date.h"
#include "velk/Device.h"
#include "velk/Result.h"

namespace velk::ingest {

inline constexpr const char* kDeviceConfigurationDomain = "velk.ingest.device-configuration";

enum class DeviceConfigurationError : std::int64_t {
  unknownTimeZone = 1,     ///< the zone is not an IANA identifier that ICU knows
  emptyLanguage = 2,       ///< the language tag is empty
  badOSVersion = 3,        ///< the text is not a version such as 17.0 or 15.4.1
  conflictingSources = 4,  ///< more than one data source, or a source mapping without an export
  stateUnusable = 5,       ///< the user-defaults file cannot be opened or created
  badInstant = 6,          ///< a clock setting that names no moment (DeviceOptions.h)
};

Error deviceConfigurationError(DeviceConfigurationError code, std::string message);

/// Every field has a default, so that designated initializers may name only what they change.
struct DeviceConfiguration {
  std::string timeZone = "UTC";                      ///< IANA identifier
  std::string language = "en";                       ///< BCP 47 tag, the one preferred language
  platform::OSVersion osVersion{};                   ///< decides how sleep stages are read
  std::optional<Date> now{};                         ///< a fixed "now"; absent: the system clock
  std::optional<std::filesystem::path> statePath{};  ///< user defaults; absent: kept in memory
  // The data source: at most one of the three. None gives an empty store.
  std::optional<std::filesystem::path> storePath{};     ///< a store file (JSON)
  std::optional<std::filesystem::path> exportPath{};    ///< an export (export.zip or export.xml)
  std::optional<std::filesystem::path> databasePath{};  ///< an imported database
  std::optional<std::filesystem::path> sourcesPath{};   ///< source identifier mapping, exports only
  /// The order in which overlapping sources are trusted in day sums (bundle identifiers, most
  /// trusted first); absent: what the store file says, else the default order.
  std::optional<std::vector<std::string>> sourcePriority{};
};

/// A built device, and what the data source reported on the way (lines about damaged parts of an
/// export, for the host to show or log).
struct ConfiguredDevice {
  std::shared_ptr<platform::Device> device;
  std::vector<std::string> warnings;
};

/// Builds the device the configuration describes. The device is not installed.
Result<ConfiguredDevice> makeConfiguredDevice(const DeviceConfiguration& configuration);

/// "17.0" or "15.4.1" as a version (two or three parts); anything else is badOSVersion.
Result<platform::OSVersion> parseOSVersion(std::string_view text);

/// The host's own time zone if ICU knows it, else "UTC".
std::string hostTimeZone();

}  // namespace velk::ingest
