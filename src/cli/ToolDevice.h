// Builds the device that the library runs on from the global options: the time zone, languages,
// clock and OS version, the user-defaults database and the health database filled from the data
// source. Everything the user got wrong comes back as an Error whose message names the input.
#pragma once

#include <memory>
#include <ostream>

#include "cli/GlobalOptions.h"
#include "velk/Device.h"
#include "velk/Result.h"

namespace velk::cli {

inline constexpr const char* kInputErrorDomain = "velk.cli.input";

/// An Error that reports bad usage or bad input (exit status 2).
Error inputError(std::string message);

/// The system's time zone (TZ, else the host's setting, else "UTC").
std::string systemTimeZone();

/// The language tag from LANG ("de_DE.UTF-8" -> "de_DE"), else "en".
std::string systemLanguage();

/// The default user-defaults database: $XDG_STATE_HOME/velk/defaults.sqlite, else
/// ~/.local/state/velk/defaults.sqlite.
std::string defaultStatePath();

/// The device the options describe. Warnings about the data (damaged parts of an export) are
/// written to `warnings`.
Result<std::shared_ptr<platform::Device>> makeToolDevice(const GlobalOptions& options,
                                                         std::ostream& warnings);

}  // namespace velk::cli
