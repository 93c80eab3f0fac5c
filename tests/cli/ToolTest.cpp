// The tool end to end: a store file in, documents and results out, as a user runs it; and the
// pieces it shows the user, the instants it reads and its progress bar.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "cli/Instant.h"
#include "cli/ProgressBar.h"
#include "cli/Tool.h"
#include "ingest/ExportTestSupport.h"
#include "support/TempDir.h"
#include "velk/DebugOutput.h"

namespace velk::cli {
namespace {

using nlohmann::json;
using ::testing::AllOf;
using ::testing::HasSubstr;

struct ToolRun {
  int status = -1;
  std::vector<json> lines;  // stdout, one JSON value per line (when it is JSON)
  std::string out;
  std::string err;
};

class ToolTest : public ::testing::Test {
 protected:
  // Runs velk with a private state database, a Berlin device and `store` as its data source.
  ToolRun velk(std::vector<std::string> arguments, const json& store = json::object()) {
    std::vector<std::string> all = {"--state", state_, "--language", "en"};
    if (std::find(arguments.begin(), arguments.end(), "--tz") == arguments.end()) {
      all.insert(all.end(), {"--tz", "Europe/Berlin"});
    }
    if (!store.is_null()) {
      all.insert(all.end(), {"--store", folder_.write("store.json", store.dump()).string()});
    }
    all.insert(all.end(), arguments.begin(), arguments.end());
    std::ostringstream out;
    std::ostringstream err;
    ToolRun run;
    {
      // The library's debug output goes to the process's stderr; collect it with the tool's own.
      platform::DebugOutputCapture debugOutput;
      run.status = runTool(all, out, err);
      err << debugOutput.text();
    }
    run.out = out.str();
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
      if (json::accept(line)) {
        run.lines.push_back(json::parse(line));
      }
    }
    run.err = err.str();
    return run;
  }

  static json sample(const std::string& type, const std::string& start, const std::string& end,
                     json value, json extra = json::object()) {
    json one = {{"type", type}, {"start", start}, {"end", end}, {"value", value}};
    one.update(extra);
    return one;
  }

  // The default database lives in the test's folder, never in the user's.
  void SetUp() override { ::setenv("XDG_DATA_HOME", folder_.file("data").c_str(), 1); }
  void TearDown() override { ::unsetenv("XDG_DATA_HOME"); }

  testing::TempDir folder_;
  std::string state_ = folder_.file("defaults.sqlite").string();
};

constexpr const char* kSleep = "HKCategoryTypeIdentifierSleepAnalysis";
constexpr const char* kSteps = "HKQuantityTypeIdentifierStepCount";

const json& sleepOf(const json& document) {
  return document["summaries"]["sleep_related_data"]["sleep_duration_related_data"];
}

// A night as the library sums it (which samples count is the sleep tests' matter), the moment
// asked stored as the last date, and the system version the tool is given: older systems do not
// understand sleep stages, so only the plain "asleep" value counts there.
TEST_F(ToolTest, SleepNightStoresTheMomentAskedAndFollowsTheSystemVersion) {
  const json store = {
      {"samples",
       {sample(kSleep, "2024-03-09T23:00:00+01:00", "2024-03-10T07:00:00+01:00", 0),
        sample(kSleep, "2024-03-10T01:00:00+01:00", "2024-03-10T02:00:00+01:00", 3),
        sample(kSleep, "2024-03-10T02:00:00+01:00", "2024-03-10T02:30:00+01:00", 1)}}};
  const ToolRun modern = velk({"summary", "sleep", "--date", "2024-03-10T08:30"}, store);
  ASSERT_EQ(modern.status, 0) << modern.err;
  ASSERT_EQ(modern.lines.size(), 1u);
  EXPECT_EQ(sleepOf(modern.lines[0])["time_in_bed_seconds"], 8 * 3600);
  EXPECT_EQ(sleepOf(modern.lines[0])["sleep_duration_seconds"], 5400);
  const ToolRun dates = velk({"last-date"});
  ASSERT_EQ(dates.lines.size(), 1u);
  EXPECT_EQ(dates.lines[0]["velk_last_sleep_date_extraction"], "2024-03-10T08:30:00.000+01:00");
  EXPECT_EQ(dates.lines[0]["velk_last_physical_date_extraction"], nullptr);

  const ToolRun legacy =
      velk({"--os-version", "15.7", "summary", "sleep", "--date", "2024-03-10"}, store);
  ASSERT_EQ(legacy.status, 0);
  EXPECT_EQ(sleepOf(legacy.lines[0])["sleep_duration_seconds"], 1800);
}

// An empty night is a night of nothing at the device's now; a store error is printed as an error
// result with status 3 and leaves the stored date alone.
TEST_F(ToolTest, AnEmptyNightAndAStoreError) {
  const ToolRun run =
      velk({"--now", "2024-03-10T09:15:00Z", "summary", "sleep", "--date", "2024-03-10"});
  ASSERT_EQ(run.status, 0);
  const json& night = sleepOf(run.lines[0]);
  const double now = 731754900;  // 2024-03-10T09:15:00Z in seconds since 2001
  EXPECT_EQ(night["sleep_start_datetime"], now);
  EXPECT_EQ(night["sleep_end_datetime"], now);
  EXPECT_EQ(night["sleep_duration_seconds"], 0);

  const json failing = {
      {"query_errors", {{kSleep, {{"code", 5}, {"message", "Authorization not determined"}}}}}};
  const ToolRun failed = velk({"summary", "sleep", "--date", "2024-03-11"}, failing);
  EXPECT_EQ(failed.status, 3);
  ASSERT_EQ(failed.lines.size(), 1u);
  EXPECT_EQ(failed.lines[0], json::parse(R"({"error": {"domain": "com.apple.healthkit", "code": 5,
                                             "message": "Authorization not determined"}})"));
  EXPECT_EQ(velk({"last-date"}).lines[0]["velk_last_sleep_date_extraction"],
            "2024-03-10T00:00:00.000+01:00");

  // A range's envelope holds the error in place of the document.
  const ToolRun inRange =
      velk({"summary", "sleep", "--from", "2024-03-11", "--to", "2024-03-11"}, failing);
  EXPECT_EQ(inRange.status, 3);
  ASSERT_EQ(inRange.lines.size(), 1u);
  EXPECT_EQ(inRange.lines[0],
            (json{{"day", "2024-03-11"}, {"kind", "sleep"}, {"error", failed.lines[0]["error"]}}));

  // A table or report of a range passes the error on the same way, and writes no file.
  const std::vector<std::string> range = {"--from", "2024-03-11", "--to", "2024-03-12"};
  std::vector<std::string> table = {"table", "all"};
  table.insert(table.end(), range.begin(), range.end());
  const ToolRun tableRun = velk(table, failing);
  EXPECT_EQ(tableRun.status, 3);
  EXPECT_EQ(tableRun.lines, failed.lines);
  const auto page = folder_.file("report.html");
  std::vector<std::string> report = {"report", "-o", page.string()};
  report.insert(report.end(), range.begin(), range.end());
  EXPECT_EQ(velk(report, failing).status, 3);
  EXPECT_FALSE(std::filesystem::exists(page));
}

// "all" prints the three documents of a day: here the body's weight is the newest up to the
// moment asked, in kilograms, and the age counts to that moment. Over a range it prints them one
// per line for every day, each asked at noon local time.
TEST_F(ToolTest, AllPrintsTheThreeDocumentsOfADayOrOfEveryDayOfARange) {
  const auto weight = [](const std::string& day, double pounds) {
    return sample("HKQuantityTypeIdentifierBodyMass", day + "T07:00:00+01:00",
                  day + "T07:00:00+01:00", pounds, {{"unit", "lb"}});
  };
  const json store = {
      {"date_of_birth", "1990-03-08"},
      {"biological_sex", 2},
      {"samples",
       {sample(kSteps, "2024-03-07T09:00:00+01:00", "2024-03-07T09:10:00+01:00", 1234.9),
        weight("2024-03-06", 150), weight("2024-03-07", 157), weight("2024-03-08", 200)}}};
  const ToolRun run =
      velk({"--now", "2024-03-07T12:00", "summary", "all", "--date", "2024-03-07T12:00"}, store);
  ASSERT_EQ(run.status, 0) << run.err;
  ASSERT_EQ(run.lines.size(), 3u);
  EXPECT_EQ(run.lines[0]["data_structure"], "sleep_health");
  EXPECT_EQ(run.lines[1]["summaries"]["daily_activity_related_data"]["distance_data"]
                     ["steps_per_day_number"],
            1234);
  const json& body = run.lines[2]["summaries"]["body_data"];
  EXPECT_EQ(body["body"]["weight_kg_number"], 71);  // 157 lb = 71.2 kg, the 7th's weigh-in
  const json& person = body["metadata"]["user_demographics"][0];
  EXPECT_EQ(person["gender"], "male");
  EXPECT_EQ(person["date_of_birth"], "1990-03-08");
  EXPECT_EQ(person["age"], 33);  // the birthday is tomorrow

  // A range names the day and kind of each document; --bare prints the documents alone.
  const ToolRun range = velk({"summary", "all", "--from", "2024-03-30", "--to", "2024-04-01"});
  const ToolRun bare =
      velk({"summary", "all", "--from", "2024-03-30", "--to", "2024-04-01", "--bare"});
  ASSERT_EQ(range.status, 0) << range.err;
  ASSERT_EQ(range.lines.size(), 9u);
  ASSERT_EQ(bare.lines.size(), 9u);
  const std::vector<std::string> kinds = {"sleep", "physical", "body"};
  const std::vector<std::string> days = {"2024-03-30", "2024-03-31", "2024-04-01"};
  for (std::size_t i = 0; i < range.lines.size(); ++i) {
    EXPECT_EQ(range.lines[i]["day"], days[i / 3]);
    EXPECT_EQ(range.lines[i]["kind"], kinds[i % 3]);
    EXPECT_EQ(range.lines[i]["document"]["data_structure"], kinds[i % 3] + "_health");
    EXPECT_EQ(bare.lines[i]["data_structure"], kinds[i % 3] + "_health");
  }
  // Also after the clocks went forward on the 31st.
  const double noonOfTheFirst = 733658400;  // 2024-04-01T10:00:00Z
  EXPECT_EQ(bare.lines[7]["summaries"]["daily_activity_related_data"]["metadata"]["datetime"],
            noonOfTheFirst);
}

TEST_F(ToolTest, PermissionsPrintTheReadSetOrTheError) {
  const ToolRun body = velk({"permissions", "body"});
  ASSERT_EQ(body.status, 0) << body.err;
  EXPECT_EQ(body.lines[0], json::parse(R"({"success": true, "requested": [
      "HKCharacteristicTypeIdentifierBiologicalSex", "HKCharacteristicTypeIdentifierDateOfBirth",
      "HKQuantityTypeIdentifierBodyMass", "HKQuantityTypeIdentifierHeight"]})"));

  const ToolRun unavailable =
      velk({"permissions", "all", "-v"}, {{"health_data_available", false}});
  EXPECT_EQ(unavailable.status, 3);
  EXPECT_EQ(unavailable.lines[0]["error"]["message"],
            "apple health kit is not avaible un your device");
  EXPECT_THAT(unavailable.err, HasSubstr("\"No health data is available.\""));
}

TEST_F(ToolTest, AnImportedExportAnswersAsTheExportItselfAndSurvivesAFailedImport) {
  const std::string exportPath = testing::sourcePath("data/sample/watch5-2020/export.xml").string();
  const std::string database = folder_.file("health.db").string();
  const ToolRun imported = velk({"import", exportPath, "--db", database}, nullptr);
  ASSERT_EQ(imported.status, 0) << imported.err;
  EXPECT_EQ(imported.lines[0]["samples"], 1862);

  const std::vector<std::string> day = {
      "--tz",   "Africa/Johannesburg", "--now", "2020-04-17T13:00", "summary", "all",
      "--date", "2020-04-13"};
  auto from = [&](std::vector<std::string> source) {
    source.insert(source.end(), day.begin(), day.end());
    return velk(source, nullptr);
  };
  const ToolRun fromExport = from({"--export", exportPath});
  ASSERT_EQ(fromExport.status, 0) << fromExport.err;
  EXPECT_EQ(from({"--db", database}).lines, fromExport.lines);
  EXPECT_EQ(fromExport.lines[1]["summaries"]["daily_activity_related_data"]["distance_data"]
                            ["steps_per_day_number"],
            755);

  // An import that fails leaves the database it would have replaced as it was.
  const ToolRun failed =
      velk({"import", folder_.write("notes.txt", "hello").string(), "--db", database}, nullptr);
  EXPECT_EQ(failed.status, 2);
  EXPECT_THAT(failed.err, HasSubstr("notes.txt"));
  EXPECT_EQ(from({"--db", database}).lines, fromExport.lines);

  // Records in units their type cannot have, or with values no measurement can have, are left
  // out with a warning, read or imported.
  std::string xml = R"(<?xml version="1.0" encoding="UTF-8"?><HealthData locale="en_US">)";
  for (const auto& [unit, value, hour] : {std::tuple{"count", "100", "09"},
                                          {"kg", "70", "10"},
                                          {"bananas", "7", "11"},
                                          {"count", "9.3e18", "12"}}) {
    xml += std::string(R"(<Record type="HKQuantityTypeIdentifierStepCount" sourceName="iPhone" )") +
           "unit=\"" + unit + "\" value=\"" + value + "\" startDate=\"2024-03-10 " + hour +
           ":00:00 +0100\" endDate=\"2024-03-10 " + hour + ":10:00 +0100\"/>";
  }
  const std::string path = folder_.write("export.xml", xml + "</HealthData>").string();
  const ToolRun run =
      velk({"--export", path, "summary", "physical", "--date", "2024-03-10T12:00"}, nullptr);
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.lines[0]["summaries"]["daily_activity_related_data"]["distance_data"]
                     ["steps_per_day_number"],
            100);
  EXPECT_THAT(run.err, AllOf(HasSubstr("2 quantity records name no unit of their type"),
                             HasSubstr("1 x quantity records with a value no measurement")));

  const ToolRun units = velk({"import", path, "--db", folder_.file("units.db").string()}, nullptr);
  ASSERT_EQ(units.status, 0) << units.err;
  EXPECT_EQ(units.lines[0]["samples"], 1);
  EXPECT_EQ(units.lines[0]["samples_without_unit"], 2);
  EXPECT_THAT(units.err, HasSubstr("1 x quantity records with a value no measurement"));
}

// A database changed after its import, as the damage a disk or a hand does: summary, table and
// info fail with status 2 and an error naming the file, instead of stopping the process or
// printing a day without the data as if it had none.
TEST_F(ToolTest, ADamagedDatabaseFailsEveryCommandThatReadsItNamingTheFile) {
  const std::string exportPath = testing::sourcePath("data/sample/watch5-2020/export.xml").string();
  const std::string clean = folder_.file("clean.db").string();
  ASSERT_EQ(velk({"import", exportPath, "--db", clean}, nullptr).status, 0);
  for (const char* damage : {"UPDATE units SET text = 'kg' WHERE text = 'count/min'",
                             "UPDATE blocks SET samples = x'00010203'",
                             "UPDATE blocks SET samples = CAST(substr(samples, 1, 12) || x'ff' || "
                             "substr(samples, 14) AS BLOB)",
                             "UPDATE blocks SET first_start = first_start + 1",
                             "UPDATE units SET text = 'furlongs' WHERE text = 'count'"}) {
    SCOPED_TRACE(damage);
    const std::string database = folder_.file("damaged.db").string();
    std::filesystem::copy_file(clean, database, std::filesystem::copy_options::overwrite_existing);
    testing::executeSql(database, damage);

    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"summary", "physical", "--date", "2020-04-13"},
          std::vector<std::string>{"table", "physical", "--from", "2020-04-13", "--to",
                                   "2020-04-13"},
          std::vector<std::string>{"info"}}) {
      std::vector<std::string> arguments = {"--db", database, "--tz", "Africa/Johannesburg"};
      arguments.insert(arguments.end(), command.begin(), command.end());
      const ToolRun run = velk(arguments, nullptr);
      EXPECT_EQ(run.status, 2) << command.front();
      EXPECT_THAT(run.err, AllOf(HasSubstr("damaged.db: damaged import database"),
                                 HasSubstr("import the export again")))
          << command.front();
    }
  }
}

// The tool as people meet it: quiet unless asked, the default database when no source is named,
// and messages that say why.
TEST_F(ToolTest, SpeaksToPeople) {
  // A day without HRV samples is no failure: the library's debug output shows only when asked.
  const json steps = {
      {"samples", {sample(kSteps, "2024-03-10T09:00:00+01:00", "2024-03-10T09:10:00+01:00", 100)}}};
  const std::vector<std::string> day = {"summary", "physical", "--date", "2024-03-10T12:00"};
  const ToolRun quiet = velk(day, steps);
  ASSERT_EQ(quiet.status, 0) << quiet.err;
  EXPECT_EQ(quiet.err, "");
  std::vector<std::string> verbose = {"--verbose"};
  verbose.insert(verbose.end(), day.begin(), day.end());
  EXPECT_THAT(velk(verbose, steps).err, HasSubstr("Error Domain="));
  ::setenv("VELK_DEBUG", "1", 1);
  const ToolRun debug = velk(day, steps);
  ::unsetenv("VELK_DEBUG");
  EXPECT_THAT(debug.err, HasSubstr("Error Domain="));

  // No data source and no default database: said, rather than answered from an empty store.
  const ToolRun none = velk(day, nullptr);
  EXPECT_EQ(none.status, 2);
  EXPECT_EQ(none.err,
            "velk: no health data: run `velk import EXPORT` or give --export, --db or --store\n");
  EXPECT_EQ(velk({"last-date"}, nullptr).status, 0);  // needs none

  // `velk import` without --db writes the default database, which commands without a source read.
  const std::string exportPath = testing::sourcePath("data/sample/watch5-2020/export.xml").string();
  const ToolRun imported = velk({"import", exportPath}, nullptr);
  ASSERT_EQ(imported.status, 0) << imported.err;
  EXPECT_EQ(imported.lines[0]["database"], folder_.file("data/velk/health.sqlite").string());
  const ToolRun fromDefault =
      velk({"--tz", "Africa/Johannesburg", "summary", "physical", "--date", "2020-04-13"}, nullptr);
  ASSERT_EQ(fromDefault.status, 0) << fromDefault.err;
  EXPECT_EQ(fromDefault.lines[0]["summaries"]["daily_activity_related_data"]["distance_data"]
                             ["steps_per_day_number"],
            755);
}

// velk info shows what the data holds and what the rules leave out: here another app's night,
// which a source mapping at import then counts, summed with the phone's over their overlap.
TEST_F(ToolTest, InfoShowsTheDataAndWhatTheRulesLeaveOut) {
  const std::string xml = testing::exportWith(
      " <Me HKCharacteristicTypeIdentifierDateOfBirth=\"1988-10-29\" "
      "HKCharacteristicTypeIdentifierBiologicalSex=\"HKBiologicalSexFemale\"/>\n" +
      testing::sleepRecord("InBed", "Jane's iPhone", "2024-03-09 23:00:00 +0100",
                           "2024-03-10 07:00:00 +0100") +
      testing::sleepRecord("InBed", "Connect", "2024-03-09 22:09:00 +0100",
                           "2024-03-10 05:35:26 +0100") +
      testing::namedRecord("Connect", "700", "2024-03-10 09:00:00 +0100",
                           "2024-03-10 09:10:00 +0100") +
      " <Record type=\"HKQuantityTypeIdentifierStepCount\" sourceName=\"Jane's iPhone\" "
      "unit=\"count\" value=\"500\" startDate=\"2024-03-11 09:00:00 +0100\" endDate=\"2024-03-11 "
      "09:10:00 +0100\"><MetadataEntry key=\"HKWasUserEntered\" value=\"1\"/></Record>\n");
  const std::string exportPath = folder_.write("export.xml", xml).string();

  const ToolRun run = velk({"--export", exportPath, "info"}, nullptr);
  ASSERT_EQ(run.status, 0) << run.err;
  const json& info = run.lines[0];
  EXPECT_EQ(info["period"], json::parse(R"({"first_day": "2024-03-09", "last_day": "2024-03-11",
                                           "days_with_data": 3, "samples": 4})"));
  EXPECT_EQ(info["types"][1], json::parse(R"({"type": "HKQuantityTypeIdentifierStepCount",
      "samples": 2, "first_day": "2024-03-10", "last_day": "2024-03-11", "days_with_data": 2,
      "entered_by_hand": 1})"));
  EXPECT_EQ(info["characteristics"],
            json::parse(R"({"date_of_birth": "1988-10-29", "biological_sex": "female"})"));
  ASSERT_EQ(info["sources"].size(), 2u);
  const json& connect = info["sources"][0];
  const json& phone = info["sources"][1];
  EXPECT_EQ(connect["name"], "Connect");
  EXPECT_EQ(connect["samples"], json::parse(R"({"HKCategoryTypeIdentifierSleepAnalysis": 1,
                                               "HKQuantityTypeIdentifierStepCount": 1})"));
  EXPECT_EQ(connect["sleep_rules_read_it"], false);
  EXPECT_EQ(phone["sleep_rules_read_it"], true);
  EXPECT_EQ(phone["day_sum_place"], 1);  // the health store's own sources come first
  EXPECT_EQ(connect["day_sum_place"], 2);
  const json& leftOut = info["left_out_by_the_rules"];
  ASSERT_EQ(leftOut.size(), 2u);
  EXPECT_EQ(leftOut[0]["source"], "Connect");
  EXPECT_EQ(leftOut[0]["records"], 1);
  EXPECT_THAT(leftOut[0]["why"].get<std::string>(), HasSubstr("--sources"));
  EXPECT_EQ(leftOut[1]["type"], kSteps);
  EXPECT_THAT(leftOut[1]["why"].get<std::string>(), HasSubstr("entered by hand"));

  // The priority moves Connect forward; an identifier the data lacks is warned about.
  const ToolRun moved = velk(
      {"--export", exportPath, "--source-priority",
       connect["bundle_identifier"].get<std::string>() + ",com.bogus", "info", "--format", "text"},
      nullptr);
  ASSERT_EQ(moved.status, 0) << moved.err;
  EXPECT_THAT(moved.err, HasSubstr("\"com.bogus\""));
  EXPECT_THAT(moved.err, ::testing::Not(HasSubstr("export.source")));
  EXPECT_THAT(moved.out, AllOf(HasSubstr("Period: 2024-03-09 to 2024-03-11"),
                               HasSubstr("Left out by the library's rules:\n  1 " +
                                         std::string(kSleep) + " from Connect")));

  // Mapped at import, Connect's night counts, summed with the phone's: 28,800 s + 26,786 s in
  // bed for a night that spans 31,860 s.
  const std::string database = folder_.file("mapped.db").string();
  const std::string sources =
      folder_.write("sources.json", R"({"Connect": "com.apple.health.connect"})").string();
  ASSERT_EQ(velk({"import", exportPath, "--db", database, "--sources", sources}, nullptr).status,
            0);
  const ToolRun mapped = velk({"--db", database, "info"}, nullptr);
  EXPECT_EQ(mapped.lines[0]["sources"][0]["sleep_rules_read_it"], true);
  EXPECT_EQ(mapped.lines[0]["left_out_by_the_rules"].size(), 1u);  // the hand entry only
  const ToolRun night =
      velk({"--db", database, "summary", "sleep", "--date", "2024-03-10"}, nullptr);
  ASSERT_EQ(night.status, 0) << night.err;
  const json& sleep = sleepOf(night.lines[0]);
  EXPECT_EQ(sleep["time_in_bed_seconds"], 55586);
  EXPECT_EQ(sleep["sleep_end_datetime"].get<double>() - sleep["sleep_start_datetime"].get<double>(),
            31860);
}

// Bad input is said on stderr, naming the input and what is wrong, with status 2 and no output.
TEST_F(ToolTest, BadInputIsReportedOnStderrWithStatusTwo) {
  const std::string folder = folder_.path().string();
  const std::string sources = folder_.write("sources.json", "{}").string();
  const std::vector<std::string> day = {"summary", "physical", "--date", "2024-03-10T12:00"};
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"--tz", "Mars/Olympus", "last-date"}, "Mars/Olympus"},
      {{"summary", "sleep", "--date", "13/04/2020"},
       "\"13/04/2020\" is not an INSTANT (give 2024-03-10, 2024-03-10T08:30"},
      {{"summary", "sleep", "--date", "2020-02-30"}, "there is no day 2020-02-30"},
      {{"summary", "naps", "--date", "2024-03-10"}, "naps"},
      {{"summary", "sleep"}, "--date"},
      {{"table", "all", "--from", "2024-03-02", "--to", "2024-03-01"}, "--from/--to"},
      {{"table", "all", "--from", "2024-03-02", "--to", "2024-03-03", "--at", "25:00"}, "--at"},
      {{"report", "--from", "2024-03-01", "--to", "2024-03-02"}, "--output"},
      {{"--export", folder_.file("nosuch.zip").string()}, "nosuch.zip: No such file or directory"},
      {{"--export", folder}, folder + ": it is a directory"},
      {{"--store", folder}, "it is a directory"},
      {{"--db", folder}, "is a directory"},
      {{"--sources", sources}, "give it to `velk import`"}};
  for (const auto& [arguments, part] : cases) {
    // An option alone is asked for a day; a data source is given no store file beside it.
    const bool option = arguments.size() == 2 && arguments.front().starts_with("--");
    std::vector<std::string> all = arguments;
    all.insert(all.end(), option ? day.begin() : day.end(), day.end());
    const bool source = option && arguments.front() != "--sources";
    const ToolRun run = velk(all, source ? json(nullptr) : json::object());
    EXPECT_EQ(run.status, 2) << part;
    EXPECT_THAT(run.err, HasSubstr(part));
    EXPECT_TRUE(run.lines.empty()) << part;
  }
  const ToolRun store = velk({"summary", "sleep", "--date", "2024-03-10"},
                             {{"samples", {{{"type", kSteps}, {"value", "many"}}}}});
  EXPECT_EQ(store.status, 2);
  EXPECT_THAT(store.err, AllOf(HasSubstr("store.json"), HasSubstr("samples[0]")));
}

double unixSeconds(const std::string& text, const std::string& zone) {
  const auto moment = parseInstant(text, platform::Calendar(zone));
  return moment ? moment->timeIntervalSince1970() : -1;
}

// Offset forms name their moment whatever the zone; local forms are read in the device's zone; a
// day alone is its local midnight; anything else is no instant.
TEST(InstantTest, ReadsOffsetAndLocalFormsAndNothingElse) {
  const std::tuple<const char*, const char*, double> cases[] = {
      {"2024-03-10T08:30:00+01:00", "Asia/Tokyo", 1710055800},
      {"2024-03-10T07:30:00Z", "Asia/Tokyo", 1710055800},
      {"2024-03-10T08:30:00+0100", "UTC", 1710055800},
      {"2024-03-10T07:30Z", "UTC", 1710055800},
      {"2024-03-10T07:30:00.25Z", "UTC", 1710055800.25},
      {"2024-03-10T08:30", "Europe/Berlin", 1710055800},
      {"2024-03-10T08:30:00", "Europe/Berlin", 1710055800},
      {"2024-03-10", "Europe/Berlin", 1710025200},
      // As exports write dates: a space between date and time, an offset without a colon.
      {"2024-03-10 08:30", "Europe/Berlin", 1710055800},
      {"2024-03-10 08:30:00 +0100", "Asia/Tokyo", 1710055800},
      // 02:30 does not exist on the morning the clocks go forward: it is read after the gap.
      {"2024-03-31T02:30", "Europe/Berlin", 1711848600},
  };
  for (const auto& [text, zone, expected] : cases) {
    EXPECT_EQ(unixSeconds(text, zone), expected) << text << " in " << zone;
  }
  for (const char* text :
       {"", "10/03/2024", "2024-03-10_08:30", "2024-02-30", "2024-03-10T08:30:00+0100x",
        "2024-13-40", "yesterday", "2024-03-10T25:00"}) {
    EXPECT_EQ(unixSeconds(text, "UTC"), -1) << text;
  }
}

// The bar shows bytes, records, rate and time left (no bar and no estimate for an archive entry of
// unknown size); it draws only on a terminal and at most ten times a second.
TEST(ProgressBarTest, RendersProgressAndDrawsOnATerminalAtMostTenTimesASecond) {
  ingest::ImportProgress progress{145'000'000, 580'000'000, 1'234'567, false};
  EXPECT_EQ(ProgressBar::render(progress, 2.0),
            "[######..................]  25%  145.0/580.0 MB  1.2M records  72.5 MB/s  ETA 0:06");
  progress.bytesRead = progress.totalBytes;
  progress.finished = true;
  EXPECT_EQ(
      ProgressBar::render(progress, 65.0),
      "[########################] 100%  580.0/580.0 MB  1.2M records  8.9 MB/s  done in 1:05");
  EXPECT_EQ(ProgressBar::render({2'500'000, 0, 4'200, false}, 0.5),
            "2.5 MB  4200 records  5.0 MB/s");
  EXPECT_EQ(ProgressBar::renderDays(250, 1000, 2.0),
            "[######..................]  25%  250/1000 days  ETA 0:06");
  EXPECT_EQ(ProgressBar::renderDays(1000, 1000, 8.0),
            "[########################] 100%  1000/1000 days  done in 0:08");

  auto now = std::chrono::steady_clock::time_point{};
  const auto clock = [&now] { return now; };
  std::ostringstream silent;
  ProgressBar off(silent, false, clock);
  off.update({1, 10, 1, true});
  off.finish();
  EXPECT_EQ(silent.str(), "");

  std::ostringstream out;
  ProgressBar bar(out, true, clock);
  for (int i = 0; i < 50; ++i) {  // 50 updates within a quarter second
    now += std::chrono::milliseconds(5);
    bar.update({static_cast<std::uint64_t>(i), 100, 0, false});
  }
  bar.update({100, 100, 0, true});  // the last one is always drawn
  now += std::chrono::milliseconds(5);
  bar.updateDays(10, 10);  // so is the last day
  bar.finish();
  const std::string text = out.str();
  EXPECT_EQ(std::count(text.begin(), text.end(), '\r'), 5);  // at 5, 105 and 205 ms, and both ends
  EXPECT_NE(text.find("100%"), std::string::npos);
  EXPECT_NE(text.find("10/10 days  done"), std::string::npos);
  EXPECT_EQ(text.back(), '\n');
}

}  // namespace
}  // namespace velk::cli
