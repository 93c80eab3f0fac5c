#include "velk/TableFormats.h"

#include <string>

namespace velk::table {
namespace {

// A cell as CSV field text: strings as they are, numbers and flags as JSON writes them (plain
// digits, "." as decimal point, true/false: no locale takes part), empty cells empty.
std::string fieldText(const nlohmann::json& cell) {
  if (cell.is_null()) {
    return {};
  }
  return cell.is_string() ? cell.get<std::string>() : cell.dump();
}

void writeField(const std::string& text, std::ostream& out) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) {
    out << text;
    return;
  }
  out << '"';
  for (const char c : text) {
    if (c == '"') {
      out << '"';
    }
    out << c;
  }
  out << '"';
}

template <class Cells, class Text>
void writeRecord(const Cells& cells, Text text, std::ostream& out) {
  bool first = true;
  for (const auto& cell : cells) {
    if (!first) {
      out << ',';
    }
    first = false;
    writeField(text(cell), out);
  }
  out << "\r\n";
}

}  // namespace

void writeCsv(const DayTable& table, std::ostream& out) {
  writeRecord(
      table.columns, [](const Column& column) { return std::string(column.name); }, out);
  for (const auto& row : table.rows) {
    writeRecord(row, fieldText, out);
  }
}

nlohmann::ordered_json rowObject(const DayTable& table, std::size_t index) {
  nlohmann::ordered_json object = nlohmann::ordered_json::object();
  const auto& row = table.rows.at(index);
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    object[std::string(table.columns[i].name)] = row.at(i);
  }
  return object;
}

void writeNdjson(const DayTable& table, std::ostream& out) {
  for (std::size_t i = 0; i < table.rows.size(); ++i) {
    out << rowObject(table, i).dump() << '\n';
  }
}

}  // namespace velk::table
