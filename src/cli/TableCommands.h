// The commands that read a range of days as a table: `velk table` (CSV or NDJSON on stdout) and
// `velk report` (an HTML file). Both run with the device installed and return the exit status.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace velk::cli {

struct TableRequest {
  std::vector<std::string> kinds;  ///< sleep, physical, body or all
  std::string from;
  std::string to;
  std::string at = "12:00";
  std::string format = "csv";  ///< csv or ndjson
  std::string output;          ///< the report's file (`velk report -o FILE`)
};

/// `velk table KIND... --from DATE --to DATE [--at HH:MM] [--format csv|ndjson]`
int runTable(const TableRequest& request, std::ostream& out, std::ostream& err);

/// `velk report --from DATE --to DATE [--at HH:MM] -o FILE`: every kind.
int runReport(const TableRequest& request, std::ostream& out, std::ostream& err);

}  // namespace velk::cli
