#include "cli/InfoCommand.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "cli/Tool.h"
#include "platform/HealthDatabase.h"
#include "sleep/SleepAnalysisBuilder.h"
#include "velk/Calendar.h"
#include "velk/Device.h"

namespace velk::cli {
namespace {

using nlohmann::json;

constexpr const char* kSleepType = "HKCategoryTypeIdentifierSleepAnalysis";

// The body summary takes the newest weight and height whoever entered them; the sleep and physical
// summaries leave out what was typed in by hand.
bool readsHandEntries(const std::string& type) {
  return type == "HKQuantityTypeIdentifierBodyMass" || type == "HKQuantityTypeIdentifierHeight";
}

// The local calendar day of a moment as yyyymmdd. Samples come in time order, so the bounds of the
// last day asked are kept and most answers cost two comparisons.
class LocalDays {
 public:
  explicit LocalDays(std::string zone) : calendar_(zone) {}

  std::int64_t dayOf(Date date) {
    if (known_ && start_ <= date && date < end_) {
      return key_;
    }
    const auto parts = calendar_.components(date);
    key_ = *parts.year * 10000 + *parts.month * 100 + *parts.day;
    platform::DateComponents midnight{parts.year, parts.month, parts.day, 0, 0, 0, 0};
    const auto start = calendar_.date(midnight);
    const auto end = start ? calendar_.dateByAddingDays(1, *start) : std::nullopt;
    known_ = start && end && *start <= date && date < *end;
    if (known_) {
      start_ = *start;
      end_ = *end;
    }
    return key_;
  }

  static std::string name(std::int64_t key) {
    char text[64];
    std::snprintf(text, sizeof text, "%04lld-%02lld-%02lld", static_cast<long long>(key / 10000),
                  static_cast<long long>(key / 100 % 100), static_cast<long long>(key % 100));
    return text;
  }

 private:
  platform::Calendar calendar_;
  bool known_ = false;
  Date start_, end_;
  std::int64_t key_ = 0;
};

struct TypeStats {
  std::uint64_t samples = 0;
  std::uint64_t enteredByHand = 0;
  std::set<std::int64_t> days;
};

struct SourceKey {
  std::string name;
  std::string bundleIdentifier;
  friend auto operator<=>(const SourceKey&, const SourceKey&) = default;
};

// What the library's rules leave out, by rule and source.
struct LeftOut {
  std::string type;
  SourceKey source;
  std::string why;
  friend auto operator<=>(const LeftOut&, const LeftOut&) = default;
};

json dayOrNull(const std::set<std::int64_t>& days, bool first) {
  if (days.empty()) {
    return nullptr;
  }
  return LocalDays::name(first ? *days.begin() : *days.rbegin());
}

json characteristicsOf(const platform::Characteristics& me) {
  json birth = nullptr;
  if (const auto* day = std::get_if<platform::DateComponents>(&me.dateOfBirth)) {
    if (day->year && day->month && day->day) {
      birth = LocalDays::name(*day->year * 10000 + *day->month * 100 + *day->day);
    }
  } else {
    birth = {{"error", std::get<Error>(me.dateOfBirth).message()}};
  }
  json sex = nullptr;
  if (const auto* value = std::get_if<std::int64_t>(&me.biologicalSex)) {
    constexpr const char* kNames[] = {"not set", "female", "male", "other"};
    sex = *value >= 0 && *value < 4 ? json(kNames[*value]) : json(*value);
  } else {
    sex = {{"error", std::get<Error>(me.biologicalSex).message()}};
  }
  return {{"date_of_birth", birth}, {"biological_sex", sex}};
}

// The sources' bundle identifiers in the order in which day sums trust them, most trusted first
// (hand-entered samples, trusted before all, are no source of their own here).
std::map<std::string, std::size_t> daySumPlaces(const std::set<std::string>& identifiers,
                                                const platform::SourcePriority& priority) {
  std::vector<platform::SampleOrigin> origins;
  for (const auto& identifier : identifiers) {
    origins.push_back({platform::InternedString(identifier), false});
  }
  std::sort(origins.begin(), origins.end(),
            [&priority](const auto& a, const auto& b) { return priority.precedes(a, b); });
  std::map<std::string, std::size_t> places;
  for (std::size_t i = 0; i < origins.size(); ++i) {
    places[origins[i].source.str()] = i + 1;
  }
  return places;
}

std::string versionText(const platform::OSVersion& version) {
  return std::to_string(version.major) + "." + std::to_string(version.minor);
}

// Characters, not bytes, so that names beyond ASCII ("User’s Apple Watch") line up.
std::size_t displayWidth(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

int displayWidth(const json& text) {
  return static_cast<int>(displayWidth(text.get<std::string>()));
}

// The text form: the same facts as the JSON, as aligned columns.
void printText(const json& info, std::ostream& out) {
  const auto cell = [](const json& value) {
    return value.is_string() ? value.get<std::string>() : value.is_null() ? "-" : value.dump();
  };
  const auto row = [&out](const std::vector<std::pair<std::string, int>>& cells) {
    std::string line;
    for (const auto& [text, width] : cells) {
      const auto wanted = static_cast<std::size_t>(std::abs(width));
      const auto shown = displayWidth(text);
      const std::string pad(wanted > shown ? wanted - shown : 0, ' ');
      line += width < 0 ? pad + text : text + pad;
      line += "  ";
    }
    while (!line.empty() && line.back() == ' ') {
      line.pop_back();
    }
    out << line << "\n";
  };
  const json& period = info["period"];
  out << "Period: " << cell(period["first_day"]) << " to " << cell(period["last_day"]) << " ("
      << info["time_zone"].get<std::string>() << "), " << period["samples"] << " samples\n";
  const json& me = info["characteristics"];
  out << "Date of birth: " << cell(me["date_of_birth"])
      << ", biological sex: " << cell(me["biological_sex"]) << "\n\n";

  int typeWidth = 4;
  for (const json& type : info["types"]) {
    typeWidth = std::max(typeWidth, displayWidth(type["type"]));
  }
  row({{"Type", typeWidth},
       {"Samples", -9},
       {"First day", 10},
       {"Last day", 10},
       {"Days", -6},
       {"By hand", -7}});
  for (const json& type : info["types"]) {
    row({{cell(type["type"]), typeWidth},
         {cell(type["samples"]), -9},
         {cell(type["first_day"]), 10},
         {cell(type["last_day"]), 10},
         {cell(type["days_with_data"]), -6},
         {cell(type["entered_by_hand"]), -7}});
  }
  out << "\n";
  int nameWidth = 6;
  int idWidth = 17;
  for (const json& source : info["sources"]) {
    nameWidth = std::max(nameWidth, displayWidth(source["name"]));
    idWidth = std::max(idWidth, displayWidth(source["bundle_identifier"]));
  }
  row({{"Source", nameWidth},
       {"Bundle identifier", idWidth},
       {"Samples", -9},
       {"Sleep read", 10},
       {"Day-sum place", -13}});
  for (const json& source : info["sources"]) {
    std::uint64_t samples = 0;
    for (const auto& [type, count] : source["samples"].items()) {
      samples += count.get<std::uint64_t>();
    }
    row({{cell(source["name"]), nameWidth},
         {cell(source["bundle_identifier"]), idWidth},
         {std::to_string(samples), -9},
         {source["sleep_rules_read_it"].get<bool>() ? "yes" : "no", 10},
         {cell(source["day_sum_place"]), -13}});
  }
  if (!info["left_out_by_the_rules"].empty()) {
    out << "\nLeft out by the library's rules:\n";
    for (const json& left : info["left_out_by_the_rules"]) {
      out << "  " << left["records"] << " " << cell(left["type"]);
      if (!left["source"].is_null()) {
        out << " from " << cell(left["source"]) << " (" << cell(left["bundle_identifier"]) << ")";
      }
      out << ": " << cell(left["why"]) << "\n";
    }
  }
}

}  // namespace

json describeHealthData() {
  const auto device = platform::Device::current();
  const auto& database = *device->healthDatabase();
  LocalDays days(device->timeZone());

  std::map<std::string, TypeStats> types;
  std::map<SourceKey, std::map<std::string, std::uint64_t>> sources;
  std::map<LeftOut, std::uint64_t> leftOut;
  std::set<std::int64_t> allDays;
  std::uint64_t total = 0;
  const std::string handWhy = "entered by hand: the sleep and physical summaries leave these out";
  const std::string sourceWhy =
      "the sleep summary reads only the health store's own sources (bundle identifiers "
      "containing com.apple.health); to count them, map the source to such an identifier at "
      "import (velk import --sources, docs/exports.md)";
  const std::string valueWhy = "sleep values that OS version " + versionText(device->osVersion()) +
                               " does not know (sleep stages need 16.0: --os-version)";

  for (const auto& type : database.sampleTypes()) {
    TypeStats& stats = types[type];
    const bool sleep = type == kSleepType;
    for (const auto& sample : database.samples(type, std::nullopt, std::nullopt)) {
      ++stats.samples;
      stats.days.insert(days.dayOf(sample.start));
      const SourceKey source{sample.sourceName.str(), sample.sourceBundleIdentifier.str()};
      ++sources[source][type];
      const bool byHand = sample.wasUserEntered.value_or(false);
      stats.enteredByHand += byHand ? 1 : 0;
      if (byHand) {
        if (!readsHandEntries(type)) {
          ++leftOut[LeftOut{type, {}, handWhy}];
        }
      } else if (sleep && !SleepAnalysisBuilder::readsSource(source.bundleIdentifier)) {
        ++leftOut[LeftOut{type, source, sourceWhy}];
      } else if (sleep && !SleepAnalysisBuilder::understandsValue(
                              static_cast<std::int64_t>(sample.value), device->osVersion())) {
        ++leftOut[LeftOut{type, {}, valueWhy}];
      }
    }
    total += stats.samples;
    allDays.insert(stats.days.begin(), stats.days.end());
  }

  json info;
  info["time_zone"] = device->timeZone();
  info["period"] = {{"first_day", dayOrNull(allDays, true)},
                    {"last_day", dayOrNull(allDays, false)},
                    {"days_with_data", allDays.size()},
                    {"samples", total}};
  info["types"] = json::array();
  for (const auto& [type, stats] : types) {
    info["types"].push_back({{"type", type},
                             {"samples", stats.samples},
                             {"first_day", dayOrNull(stats.days, true)},
                             {"last_day", dayOrNull(stats.days, false)},
                             {"days_with_data", stats.days.size()},
                             {"entered_by_hand", stats.enteredByHand}});
  }
  std::set<std::string> identifiers;
  for (const auto& [source, counts] : sources) {
    identifiers.insert(source.bundleIdentifier);
  }
  const auto places = daySumPlaces(identifiers, database.sourcePriority());
  info["sources"] = json::array();
  for (const auto& [source, counts] : sources) {
    info["sources"].push_back(
        {{"name", source.name},
         {"bundle_identifier", source.bundleIdentifier},
         {"samples", counts},
         {"sleep_rules_read_it", SleepAnalysisBuilder::readsSource(source.bundleIdentifier)},
         {"day_sum_place", places.at(source.bundleIdentifier)}});
  }
  info["characteristics"] = characteristicsOf(database.characteristics());
  info["left_out_by_the_rules"] = json::array();
  for (const auto& [left, count] : leftOut) {
    const bool bySource = !left.source.bundleIdentifier.empty();
    info["left_out_by_the_rules"].push_back(
        {{"type", left.type},
         {"records", count},
         {"source", bySource ? json(left.source.name) : json(nullptr)},
         {"bundle_identifier", bySource ? json(left.source.bundleIdentifier) : json(nullptr)},
         {"why", left.why}});
  }
  return info;
}

int runInfo(const std::string& format, std::ostream& out) {
  const json info = describeHealthData();
  if (format == "text") {
    printText(info, out);
  } else {
    out << info.dump() << "\n";
  }
  return kExitSuccess;
}

}  // namespace velk::cli
