// The options that every `velk` command shares: where the data comes from and how the device that
// the library runs on is set up. Plain text as the user typed it; ToolDevice interprets it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace velk::cli {

struct GlobalOptions {
  std::optional<std::string> timeZone;      ///< --tz
  std::optional<std::string> language;      ///< --language
  std::optional<std::string> now;           ///< --now, an INSTANT
  std::string osVersion = "17.0";           ///< --os-version
  std::optional<std::string> statePath;     ///< --state
  std::optional<std::string> storePath;     ///< --store
  std::optional<std::string> exportPath;    ///< --export
  std::optional<std::string> databasePath;  ///< --db
  std::optional<std::string> sourcesPath;   ///< --sources
  std::vector<std::string> sourcePriority;  ///< --source-priority, most trusted first
  bool verbose = false;  ///< --verbose or VELK_DEBUG=1: the library's debug output

  /// True when one of --store, --export and --db was given.
  bool hasDataSource() const { return storePath || exportPath || databasePath; }
};

}  // namespace velk::cli
