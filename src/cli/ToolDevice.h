// Builds the device that the library runs on from the global options (velk/DeviceOptions.h).
// Everything the user got wrong comes back as an input Error whose message names the option.
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

using ingest::defaultStatePath;

/// The default health database, which `velk import` writes without --db and every command
/// without a data source reads: $XDG_DATA_HOME/velk/health.sqlite, else
/// ~/.local/share/velk/health.sqlite.
std::string defaultDatabasePath();

/// The device the options describe. Warnings about the data (damaged parts of an export) are
/// written to `warnings`.
Result<std::shared_ptr<platform::Device>> makeToolDevice(const GlobalOptions& options,
                                                         std::ostream& warnings);

}  // namespace velk::cli
