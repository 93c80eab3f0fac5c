// The commands that read a range of days as a table: `velk table` (CSV or NDJSON on stdout). It
// runs with the device installed and returns the exit status.
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
};

/// `velk table KIND... --from DATE --to DATE [--at HH:MM] [--format csv|ndjson]`
int runTable(const TableRequest& request, std::ostream& out, std::ostream& err);

}  // namespace velk::cli
