// The day table written out: CSV for spreadsheets, NDJSON for programs. Both write every cell as
// the table holds it; neither depends on the process's locale.
#pragma once

#include <cstddef>
#include <ostream>

#include <nlohmann/json.hpp>

#include "velk/DayTable.h"

namespace velk::table {

/// The table as CSV by RFC 4180: a header record of the column names, then one record per row,
/// each ended by CRLF. A field that holds a comma, a quotation mark or a line break is written in
/// quotation marks, with its quotation marks doubled. An empty cell is an empty field; numbers
/// are plain digits (no grouping, "." as decimal point) and flags "true" or "false".
void writeCsv(const DayTable& table, std::ostream& out);

/// The table as NDJSON: one JSON object per row and line, keys the column names in column order,
/// empty cells null.
void writeNdjson(const DayTable& table, std::ostream& out);

/// Row `index` as the JSON object that writeNdjson writes.
nlohmann::ordered_json rowObject(const DayTable& table, std::size_t index);

}  // namespace velk::table
