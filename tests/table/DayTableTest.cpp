// The day table: its rows against the documents they are read from, and its two text formats.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <locale>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "support/TempDir.h"
#include "support/TestDevice.h"
#include "velk/Calendar.h"
#include "velk/DayTable.h"
#include "velk/DebugOutput.h"
#include "velk/Device.h"
#include "velk/DeviceConfiguration.h"
#include "velk/TableFormats.h"
#include "velk/VelkExtractionManager.h"

namespace velk::table {
namespace {

using nlohmann::json;

// A device over one data source (an export or a store file), installed for the test's scope.
class SourceDevice {
 public:
  explicit SourceDevice(const ingest::DeviceConfiguration& configuration)
      : device_(ingest::makeConfiguredDevice(configuration).value().device), scope_(device_) {}

 private:
  std::shared_ptr<platform::Device> device_;
  platform::DeviceScope scope_;
};

// The dictionary of one kind's document for the day asked at `day`, from a manager of its own.
json documentOf(VelkDataType kind, Date day) {
  VelkExtractionManager manager;
  std::mutex mutex;
  std::optional<json> answer;
  auto completion = [&](std::optional<json> dictionary, std::optional<Error> error) {
    std::lock_guard lock(mutex);
    answer = error ? json() : dictionary.value_or(json::object());
  };
  switch (kind) {
    case VelkDataType::sleepSummary:
      manager.getSleepSummayObjc(day, completion);
      break;
    case VelkDataType::physicalSummary:
      manager.getPhysicalSummaryObjc(day, completion);
      break;
    case VelkDataType::bodySummary:
      manager.getBodySummaryObjc(day, completion);
      break;
  }
  platform::Device::current()->mainQueue()->runUntil(
      [&] {
        std::lock_guard lock(mutex);
        return answer.has_value();
      },
      std::chrono::seconds(20));
  std::lock_guard lock(mutex);
  return answer.value_or(json());
}

// Unix seconds of "yyyy-MM-ddTHH:mm:ss+hh:mm", worked out without the library's calendar.
double unixSeconds(const std::string& text) {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  int offsetHours = 0, offsetMinutes = 0;
  char sign = '+';
  EXPECT_EQ(std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%d%c%d:%d", &year, &month, &day, &hour,
                        &minute, &second, &sign, &offsetHours, &offsetMinutes),
            9)
      << text;
  const double offset = (sign == '-' ? -1 : 1) * (offsetHours * 3600.0 + offsetMinutes * 60.0);
  return testing::utcDate(year, month, day, hour, minute, second).timeIntervalSince1970() - offset;
}

// Walks every cell: a filled cell holds the value at its column's key path in that day's document
// of its kind (a date as its local text, to the second); an empty one stands where the document
// holds none or where the row says the kind had no data, and then every cell of the kind is
// empty. Returns how many document cells were filled.
int expectRowsReadFromTheDocuments(const DayTable& table, const std::vector<Date>& days) {
  EXPECT_EQ(table.rows.size(), days.size());
  int filled = 0;
  for (std::size_t r = 0; r < table.rows.size() && r < days.size(); ++r) {
    const auto& row = table.rows[r];
    std::map<VelkDataType, json> documents;
    std::map<VelkDataType, bool> hasData;
    for (std::size_t c = 0; c < table.columns.size(); ++c) {
      const Column& column = table.columns[c];
      if (column.source == ColumnSource::presence) {
        EXPECT_TRUE(row[c].is_boolean()) << column.name;
        hasData[*column.kind] = row[c] == true;
        documents[*column.kind] = documentOf(*column.kind, days[r]);
      }
    }
    for (std::size_t c = 0; c < table.columns.size(); ++c) {
      const Column& column = table.columns[c];
      const json& cell = row[c];
      if (column.source != ColumnSource::document) {
        continue;
      }
      SCOPED_TRACE(std::string(column.name) + " of row " + std::to_string(r));
      const json& document = documents.at(*column.kind);
      const json::json_pointer path{std::string(column.path)};
      const json value = document.contains(path) ? document.at(path) : json();
      if (!hasData.at(*column.kind)) {
        EXPECT_TRUE(cell.is_null()) << cell;
        continue;
      }
      if (value.is_null()) {
        EXPECT_TRUE(cell.is_null()) << cell;
        continue;
      }
      ++filled;
      if (column.type == CellType::dateTime) {
        EXPECT_EQ(unixSeconds(cell.is_string() ? cell.get<std::string>() : cell.dump()),
                  std::floor(value.get<double>() + Date::kReferenceToUnixEpoch));
      } else {
        EXPECT_EQ(cell, value);
      }
    }
  }
  return filled;
}

std::map<std::string, json> cellsOf(const DayTable& table, std::size_t row) {
  std::map<std::string, json> cells;
  for (std::size_t c = 0; c < table.columns.size(); ++c) {
    cells[std::string(table.columns[c].name)] = table.rows.at(row).at(c);
  }
  return cells;
}

// Noon of a local day.
Date noon(const std::string& zone, int year, int month, int day) {
  return *platform::Calendar(zone).date({year, month, day, 12, 0, 0, std::nullopt});
}

const std::vector<VelkDataType> kAllKinds = *kindsFromNames({"all"});

TEST(DayTableTest, TheSampleExportsRowsAreItsDocuments) {
  const std::string zone = "Africa/Johannesburg";
  SourceDevice device(
      {.timeZone = zone, .exportPath = testing::sourcePath("data/sample/watch5-2020/export.xml")});
  platform::DebugOutputCapture quiet;  // the reads that find no weight, every day
  std::vector<std::size_t> progress;
  const auto table = makeDayTable({noon(zone, 2020, 4, 9), noon(zone, 2020, 4, 18)}, kAllKinds,
                                  [&progress](std::size_t done, std::size_t total) {
                                    EXPECT_EQ(total, 10u);
                                    progress.push_back(done);
                                    return true;
                                  });
  ASSERT_TRUE(table.isSuccess()) << table.error();
  EXPECT_EQ(progress, (std::vector<std::size_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
  EXPECT_EQ(table.value().columns.size(), columns().size());
  // Steps, energy, heart rate, HRV and age on the days of the export: no vacuous walk.
  EXPECT_GT(
      expectRowsReadFromTheDocuments(
          table.value(), dayMoments({noon(zone, 2020, 4, 9), noon(zone, 2020, 4, 18)}).value()),
      50);

  const auto first = cellsOf(table.value(), 0);
  EXPECT_EQ(first.at("date"), "2020-04-09");
  EXPECT_EQ(first.at("has_physical"), false);  // before the watch's first day
  const auto thirteenth = cellsOf(table.value(), 4);
  EXPECT_EQ(thirteenth.at("has_sleep"), false);  // the export holds no sleep
  // Its one HRV sample was on the 11th: a manager per day keeps it from being reported again on
  // the days after, as a manager that served the 11th would.
  EXPECT_EQ(cellsOf(table.value(), 2).at("hrv_sdnn_ms"), 45);
  EXPECT_EQ(thirteenth.at("hrv_sdnn_ms"), nullptr);
}

// A night across the change to summer time, a night without sleep, a day without activity and a
// weight from before the range.
TEST(DayTableTest, EmptyCellsWhereAKindHadNoDataAndLocalTimesAcrossDST) {
  const std::string zone = "Europe/Berlin";
  const auto sample = [](const char* type, const char* start, const char* end, json value) {
    return json{{"type", type}, {"start", start}, {"end", end}, {"value", value}};
  };
  const json store = {{"date_of_birth", "1990-03-08"},
                      {"samples",
                       {sample("HKCategoryTypeIdentifierSleepAnalysis", "2024-03-30T23:00:00+01:00",
                               "2024-03-31T07:00:00+02:00", 3),
                        sample("HKQuantityTypeIdentifierStepCount", "2024-03-30T10:00:00+01:00",
                               "2024-03-30T10:30:00+01:00", 4321),
                        sample("HKQuantityTypeIdentifierBodyMass", "2024-03-20T07:00:00+01:00",
                               "2024-03-20T07:00:00+01:00", 72.6)}}};
  testing::TempDir folder;
  SourceDevice device({.timeZone = zone,
                       .now = noon(zone, 2024, 4, 2),
                       .storePath = folder.write("store.json", store.dump())});
  platform::DebugOutputCapture quiet;
  const DayRange range{noon(zone, 2024, 3, 30), noon(zone, 2024, 4, 1)};
  const auto table = makeDayTable(range, kAllKinds);
  ASSERT_TRUE(table.isSuccess()) << table.error();
  expectRowsReadFromTheDocuments(table.value(), dayMoments(range).value());

  const auto saturday = cellsOf(table.value(), 0);
  EXPECT_EQ(saturday.at("has_sleep"), false);
  EXPECT_EQ(saturday.at("steps"), 4321);

  const auto sunday = cellsOf(table.value(), 1);
  EXPECT_EQ(sunday.at("date"), "2024-03-31");
  EXPECT_EQ(sunday.at("sleep_start"), "2024-03-30T23:00:00+01:00");
  EXPECT_EQ(sunday.at("sleep_end"), "2024-03-31T07:00:00+02:00");
  // Eight hours on the wall clock, seven slept: the clocks went forward in the night.
  EXPECT_EQ(sunday.at("light_seconds"), 7 * 3600);
  EXPECT_EQ(sunday.at("sleep_seconds"), 7 * 3600);
  EXPECT_EQ(sunday.at("has_physical"), false);

  // The night before Monday has no sample: its document says zero, so the kind had no data and
  // (as the walk above checks) its cells are empty.
  const auto monday = cellsOf(table.value(), 2);
  EXPECT_EQ(documentOf(VelkDataType::sleepSummary, noon(zone, 2024, 4, 1))
                .at(json::json_pointer("/summaries/sleep_related_data/sleep_duration_related_data/"
                                       "sleep_duration_seconds")),
            0);
  EXPECT_EQ(monday.at("has_sleep"), false);
  EXPECT_EQ(monday.at("sources"), "Apple Health");  // of the body document

  // Only the kinds asked have columns; a range that runs backwards is refused.
  const auto sleepOnly = makeDayTable(range, {VelkDataType::sleepSummary});
  ASSERT_TRUE(sleepOnly.isSuccess());
  std::vector<std::string> names;
  for (const Column& column : sleepOnly.value().columns) {
    names.emplace_back(column.name);
  }
  EXPECT_EQ(names,
            (std::vector<std::string>{"date", "sleep_start", "sleep_end", "sleep_seconds",
                                      "deep_seconds", "rem_seconds", "light_seconds",
                                      "awake_seconds", "in_bed_seconds", "has_sleep", "sources"}));
  const auto backwards = makeDayTable({range.last, range.first}, kAllKinds);
  ASSERT_TRUE(backwards.isFailure());
  EXPECT_EQ(backwards.error().code(), static_cast<std::int64_t>(TableError::badRange));
  // A progress handler that answers false (a host whose user interrupts) stops after that day.
  std::size_t daysDone = 0;
  const auto stopped =
      makeDayTable(range, {VelkDataType::sleepSummary}, [&daysDone](std::size_t done, std::size_t) {
        daysDone = done;
        return false;
      });
  ASSERT_TRUE(stopped.isFailure());
  EXPECT_EQ(stopped.error().code(), static_cast<std::int64_t>(TableError::stopped));
  EXPECT_EQ(daysDone, 1u);
}

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
