#include "report/DayReport.h"

#include <cstddef>
#include <string_view>

#include <nlohmann/json.hpp>

namespace velk::report {

// The page around the data island, made at build time from report.html (VelkEmbedReport.cmake).
extern const char kReportPageHead[];
extern const std::size_t kReportPageHeadSize;
extern const char kReportPageTail[];
extern const std::size_t kReportPageTailSize;

namespace {

// JSON that is safe as the text of a script element: "<" only occurs inside JSON strings, and as
// \u003c it can neither close the element nor open a comment; ">" and "&" likewise, for good
// measure. JSON.parse reads the escapes back as the characters.
std::string scriptSafe(const std::string& json) {
  std::string safe;
  safe.reserve(json.size());
  for (const char c : json) {
    switch (c) {
      case '<':
        safe += "\\u003c";
        break;
      case '>':
        safe += "\\u003e";
        break;
      case '&':
        safe += "\\u0026";
        break;
      default:
        safe += c;
    }
  }
  return safe;
}

}  // namespace

void writeReport(const table::DayTable& table, const std::string& timeZone, std::ostream& out) {
  nlohmann::json columns = nlohmann::json::array();
  for (const table::Column& column : table.columns) {
    columns.push_back({{"name", column.name}, {"unit", column.unit}});
  }
  const nlohmann::json island = {{"zone", timeZone}, {"columns", columns}, {"rows", table.rows}};
  out << std::string_view(kReportPageHead, kReportPageHeadSize)
      << scriptSafe(island.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace))
      << std::string_view(kReportPageTail, kReportPageTailSize);
}

}  // namespace velk::report
