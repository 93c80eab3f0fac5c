#include <gtest/gtest.h>

#include <locale>
#include <sstream>

#include "velk/TableFormats.h"

namespace velk::table {
namespace {

// A locale that groups thousands with "." and writes "," as decimal point, as German does.
struct GermanNumbers : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

// Quotation by RFC 4180 where a field needs it, CRLF record ends, empty cells empty, numbers and
// flags the same in any locale; NDJSON keeps the column order and writes empty cells as null.
TEST(TableFormatsTest, CsvByTheRulesAndNdjsonInColumnOrder) {
  const auto column = [](std::string_view name, CellType type) {
    return Column{name, "", type, ColumnSource::day, std::nullopt, ""};
  };
  const DayTable table{{column("date", CellType::date), column("steps", CellType::integer),
                        column("has_sleep", CellType::flag), column("sources", CellType::text)},
                       {{"2024-03-10", 18000, true, "Apple Health"},
                        {"2024-03-11", nullptr, false, "Watch, \"Ann's\"\nand phone"}}};
  std::ostringstream csv;
  csv.imbue(std::locale(std::locale::classic(), new GermanNumbers));
  writeCsv(table, csv);
  EXPECT_EQ(csv.str(),
            "date,steps,has_sleep,sources\r\n"
            "2024-03-10,18000,true,Apple Health\r\n"
            "2024-03-11,,false,\"Watch, \"\"Ann's\"\"\nand phone\"\r\n");

  std::ostringstream ndjson;
  ndjson.imbue(std::locale(std::locale::classic(), new GermanNumbers));
  writeNdjson(table, ndjson);
  EXPECT_EQ(ndjson.str(),
            "{\"date\":\"2024-03-10\",\"steps\":18000,\"has_sleep\":true,"
            "\"sources\":\"Apple Health\"}\n"
            "{\"date\":\"2024-03-11\",\"steps\":null,\"has_sleep\":false,"
            "\"sources\":\"Watch, \\\"Ann's\\\"\\nand phone\"}\n");
}

}  // namespace
}  // namespace velk::table
