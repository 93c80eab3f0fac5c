// A device described as a user types it: the options that the `velk` tool takes on its command
// line (--tz, --language, --now, --os-version, --state, --store/--export/--db, --sources,
// --source-priority) and the language bindings take as arguments, with the defaults of a program
// run by that user (the system's zone and language, a state file in the user's state folder).
//
// Every host that lets a user describe the device builds it here, so that an option means the
// same in all of them. Errors come back as makeConfiguredDevice gives them (in
// kDeviceConfigurationDomain, or a data source's own error); deviceOptionOf() says which option a
// fault is about, so that each host can name it in its own spelling ("--tz" or "tz=").
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "velk/Calendar.h"
#include "velk/Date.h"
#include "velk/DeviceConfiguration.h"
#include "velk/Error.h"
#include "velk/Result.h"

namespace velk::ingest {

/// Plain text as the user gave it; absent means the default.
struct DeviceOptions {
  std::optional<std::string> timeZone;      ///< IANA name; default systemTimeZone()
  std::optional<std::string> language;      ///< BCP 47 tag; default systemLanguage()
  std::optional<std::string> now;           ///< a moment (parseInstant); default the system clock
  std::string osVersion = "17.0";           ///< "17.0" or "15.4.1"
  std::optional<std::string> statePath;     ///< user defaults; default defaultStatePath()
  std::optional<std::string> storePath;     ///< data source: a store file
  std::optional<std::string> exportPath;    ///< data source: an export
  std::optional<std::string> databasePath;  ///< data source: an imported database
  std::optional<std::string> sourcesPath;   ///< source identifier mapping, exports only
  std::vector<std::string> sourcePriority;  ///< most trusted first; empty: the source's own order
};

/// The options a configuration fault can be about.
enum class DeviceOption { timeZone, language, now, osVersion, state };

/// The device the options describe (not installed), and the data source's warnings. A `now` that
/// is no moment fails with DeviceConfigurationError::badInstant.
Result<ConfiguredDevice> makeDeviceFromOptions(const DeviceOptions& options);

/// The option that an error of makeDeviceFromOptions is about; absent for the faults that belong
/// to no single option (conflicting sources) and for a data source's own errors, whose messages
/// name their file.
std::optional<DeviceOption> deviceOptionOf(const Error& error);

/// The moment that `text` names, local forms read in `calendar`'s zone; absent when it names none:
///
///   2024-03-10T08:30:00+01:00, 2024-03-10T07:30:00.250Z   ISO 8601 with an offset or Z
///   2024-03-10 08:30:00 +0100                             a date as exports write it
///   2024-03-10T08:30, 2024-03-10 08:30:00                 a local date and time
///   2024-03-10                                            a bare date: local midnight
///
/// A local time that a DST gap skips is read after the gap.
std::optional<Date> parseInstant(std::string_view text, const platform::Calendar& calendar);

/// The system's time zone: TZ when ICU knows it, else the host's setting, else "UTC".
std::string systemTimeZone();

/// The language tag from LANG ("de_DE.UTF-8" -> "de_DE"), else "en".
std::string systemLanguage();

/// $XDG_STATE_HOME/velk/defaults.sqlite, else ~/.local/state/velk/defaults.sqlite.
std::string defaultStatePath();

}  // namespace velk::ingest
