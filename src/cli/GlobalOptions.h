// The options that every `velk` command shares: where the data comes from and how the device that
// the library runs on is set up. Plain text as the user typed it; the installed front interprets
// it (velk/DeviceOptions.h), as it does for the language bindings.
#pragma once

#include "velk/DeviceOptions.h"

namespace velk::cli {

using GlobalOptions = ingest::DeviceOptions;

}  // namespace velk::cli
