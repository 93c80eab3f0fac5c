// The column list of the day table: a column is one line here. Document columns name the key
// path of their value in the dictionary form of their kind's document (docs/documents.md).
#include <algorithm>
#include <array>

#include "table/DayRow.h"
#include "velk/DayTable.h"

namespace velk::table {
namespace {

constexpr auto kSleep = VelkDataType::sleepSummary;
constexpr auto kPhysical = VelkDataType::physicalSummary;
constexpr auto kBody = VelkDataType::bodySummary;

constexpr Column sleepColumn(std::string_view name, CellType type, std::string_view key) {
  return {name, type == CellType::integer ? "s" : "", type, ColumnSource::document, kSleep, key};
}
constexpr Column physicalColumn(std::string_view name, std::string_view unit,
                                std::string_view key) {
  return {name, unit, CellType::integer, ColumnSource::document, kPhysical, key};
}
constexpr Column bodyColumn(std::string_view name, std::string_view unit, std::string_view key) {
  return {name, unit, CellType::integer, ColumnSource::document, kBody, key};
}
constexpr Column presenceColumn(std::string_view name, VelkDataType kind) {
  return {name, "", CellType::flag, ColumnSource::presence, kind, ""};
}

constexpr std::array kColumns{
    Column{"date", "", CellType::date, ColumnSource::day, std::nullopt, ""},
    sleepColumn("sleep_start", CellType::dateTime,
                "/summaries/sleep_related_data/sleep_duration_related_data/sleep_start_datetime"),
    sleepColumn("sleep_end", CellType::dateTime,
                "/summaries/sleep_related_data/sleep_duration_related_data/sleep_end_datetime"),
    sleepColumn("sleep_seconds", CellType::integer,
                "/summaries/sleep_related_data/sleep_duration_related_data/sleep_duration_seconds"),
    sleepColumn(
        "deep_seconds", CellType::integer,
        "/summaries/sleep_related_data/sleep_duration_related_data/deep_sleep_duration_seconds"),
    sleepColumn(
        "rem_seconds", CellType::integer,
        "/summaries/sleep_related_data/sleep_duration_related_data/rem_sleep_duration_seconds"),
    sleepColumn(
        "light_seconds", CellType::integer,
        "/summaries/sleep_related_data/sleep_duration_related_data/light_sleep_duration_seconds"),
    sleepColumn("awake_seconds", CellType::integer,
                "/summaries/sleep_related_data/sleep_duration_related_data/"
                "time_awake_during_sleep_seconds"),
    sleepColumn("in_bed_seconds", CellType::integer,
                "/summaries/sleep_related_data/sleep_duration_related_data/time_in_bed_seconds"),
    physicalColumn("steps", "steps",
                   "/summaries/daily_activity_related_data/distance_data/steps_per_day_number"),
    physicalColumn(
        "active_kcal", "kcal",
        "/summaries/daily_activity_related_data/calories_data/calories_net_active_kilocalories"),
    physicalColumn("basal_kcal", "kcal",
                   "/summaries/daily_activity_related_data/calories_data/"
                   "calories_basal_metabolic_rate_kilocalories"),
    physicalColumn("hr_min_bpm", "bpm",
                   "/summaries/daily_activity_related_data/heart_rate_data/hr_minimum_bpm"),
    physicalColumn("hr_avg_bpm", "bpm",
                   "/summaries/daily_activity_related_data/heart_rate_data/hr_avg_bpm"),
    physicalColumn("hr_max_bpm", "bpm",
                   "/summaries/daily_activity_related_data/heart_rate_data/hr_max_bpm"),
    physicalColumn("hr_resting_bpm", "bpm",
                   "/summaries/daily_activity_related_data/heart_rate_data/hr_resting_bpm"),
    physicalColumn("hrv_sdnn_ms", "ms",
                   "/summaries/daily_activity_related_data/heart_rate_data/hrv_avg_sdnn_number"),
    bodyColumn("weight_kg", "kg", "/summaries/body_data/body/weight_kg_number"),
    bodyColumn("height_cm", "cm", "/summaries/body_data/body/height_cm_number"),
    bodyColumn("age", "years", "/summaries/body_data/metadata/user_demographics/0/age"),
    presenceColumn("has_sleep", kSleep),
    presenceColumn("has_physical", kPhysical),
    presenceColumn("has_body", kBody),
    Column{"sources", "", CellType::text, ColumnSource::sources, std::nullopt, ""},
};

struct KindNames {
  VelkDataType kind;
  std::string_view name;
  std::string_view sourcesPath;  ///< the document's metadata.sources_of_data
};

constexpr std::array kKinds{
    KindNames{kSleep, "sleep", "/summaries/sleep_related_data/metadata/sources_of_data"},
    KindNames{kPhysical, "physical",
              "/summaries/daily_activity_related_data/metadata/sources_of_data"},
    KindNames{kBody, "body", "/summaries/body_data/metadata/sources_of_data"},
};

const KindNames& namesOf(VelkDataType kind) {
  return *std::find_if(kKinds.begin(), kKinds.end(),
                       [kind](const KindNames& names) { return names.kind == kind; });
}

}  // namespace

std::span<const Column> columns() {
  return kColumns;
}

std::vector<Column> columnsOf(const std::vector<VelkDataType>& kinds) {
  std::vector<Column> chosen;
  for (const Column& column : kColumns) {
    if (!column.kind || std::find(kinds.begin(), kinds.end(), *column.kind) != kinds.end()) {
      chosen.push_back(column);
    }
  }
  return chosen;
}

std::string_view sourcesPath(VelkDataType kind) {
  return namesOf(kind).sourcesPath;
}

std::optional<std::vector<VelkDataType>> kindsFromNames(const std::vector<std::string>& names) {
  std::vector<VelkDataType> kinds;
  const auto add = [&kinds](VelkDataType kind) {
    if (std::find(kinds.begin(), kinds.end(), kind) == kinds.end()) {
      kinds.push_back(kind);
    }
  };
  for (const std::string& name : names) {
    if (name == "all") {
      for (const KindNames& each : kKinds) {
        add(each.kind);
      }
      continue;
    }
    const auto named = std::find_if(kKinds.begin(), kKinds.end(),
                                    [&name](const KindNames& each) { return each.name == name; });
    if (named == kKinds.end()) {
      return std::nullopt;
    }
    add(named->kind);
  }
  return kinds;
}

std::string_view kindName(VelkDataType kind) {
  return namesOf(kind).name;
}

}  // namespace velk::table
