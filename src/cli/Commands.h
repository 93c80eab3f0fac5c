// The commands of the tool. Each runs with the device already installed and returns the exit
// status; the library's answers are awaited by driving the main queue on the calling thread.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "cli/GlobalOptions.h"
#include "velk/Error.h"

namespace velk::cli {

/// `velk last-date`
int runLastDate(std::ostream& out);

struct SummaryRequest {
  std::vector<std::string> kinds;  ///< sleep, physical, body or all, in the order given
  std::optional<std::string> date;
  std::optional<std::string> from;
  std::optional<std::string> to;
  std::string at = "12:00";
  bool bare = false;  ///< a range's documents without their envelope
};

/// `velk summary KIND... --date INSTANT`, or `--from DATE --to DATE [--at HH:MM] [--bare]`: a
/// range prints each document in its envelope {"day": "yyyy-MM-dd", "kind": K, "document": {...}}
/// (or "error" in place of "document"), unless `bare`.
int runSummary(const SummaryRequest& request, std::ostream& out, std::ostream& err);

/// `velk permissions all|sleep|physical|body`
int runPermissions(const std::string& family, std::ostream& out, std::ostream& err);

/// `velk import EXPORT --db FILE`: needs no device; `global` gives --db and --sources.
int runImport(const std::string& exportPath, const GlobalOptions& global, std::ostream& out,
              std::ostream& err);

/// {"error": {"domain": D, "code": N, "message": M}}
nlohmann::json errorResult(const Error& error);

/// Prints errorResult(error) on one line.
void printErrorResult(const Error& error, std::ostream& out);

}  // namespace velk::cli
