// The options that every `velk` command shares: where the data comes from and how the device that
// the library runs on is set up. Plain text as the user typed it; the installed front interprets
// it (velk/DeviceOptions.h), as it does for the language bindings.
#pragma once

#include "velk/DeviceOptions.h"

namespace velk::cli {

/// The device options, and what the tool itself takes besides them.
struct GlobalOptions : ingest::DeviceOptions {
  bool verbose = false;  ///< --verbose or VELK_DEBUG=1: the library's debug output

  /// True when one of --store, --export and --db was given.
  bool hasDataSource() const { return storePath || exportPath || databasePath; }
};

}  // namespace velk::cli
