#include "cli/InfoCommand.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
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

std::string cellText(const json& value) {
  return value.is_string() ? value.get<std::string>() : value.is_null() ? "-" : value.dump();
}

// One line of columns: each cell padded to its width, to the right for negative widths.
void printRow(std::ostream& out, const std::vector<std::pair<std::string, int>>& cells) {
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
}

void printTypes(const json& info, std::ostream& out) {
  int typeWidth = 4;
  for (const json& type : info["types"]) {
    typeWidth = std::max(typeWidth, displayWidth(type["type"]));
  }
  printRow(out, {{"Type", typeWidth},
                 {"Samples", -9},
                 {"First day", 10},
                 {"Last day", 10},
                 {"Days", -6},
                 {"By hand", -7}});
  for (const json& type : info["types"]) {
    printRow(out, {{cellText(type["type"]), typeWidth},
                   {cellText(type["samples"]), -9},
                   {cellText(type["first_day"]), 10},
                   {cellText(type["last_day"]), 10},
                   {cellText(type["days_with_data"]), -6},
                   {cellText(type["entered_by_hand"]), -7}});
  }
}

void printSources(const json& info, std::ostream& out) {
  int nameWidth = 6;
  int idWidth = 17;
  for (const json& source : info["sources"]) {
    nameWidth = std::max(nameWidth, displayWidth(source["name"]));
    idWidth = std::max(idWidth, displayWidth(source["bundle_identifier"]));
  }
  printRow(out, {{"Source", nameWidth},
                 {"Bundle identifier", idWidth},
                 {"Samples", -9},
                 {"Sleep read", 10},
                 {"Day-sum place", -13}});
  for (const json& source : info["sources"]) {
    std::uint64_t samples = 0;
    for (const auto& [type, count] : source["samples"].items()) {
      samples += count.get<std::uint64_t>();
    }
    printRow(out, {{cellText(source["name"]), nameWidth},
                   {cellText(source["bundle_identifier"]), idWidth},
                   {std::to_string(samples), -9},
                   {source["sleep_rules_read_it"].get<bool>() ? "yes" : "no", 10},
                   {cellText(source["day_sum_place"]), -13}});
  }
}

void printLeftOut(const json& info, std::ostream& out) {
  if (info["left_out_by_the_rules"].empty()) {
    return;
  }
  out << "\nLeft out by the library's rules:\n";
  for (const json& left : info["left_out_by_the_rules"]) {
    out << "  " << left["records"] << " " << cellText(left["type"]);
    if (!left["source"].is_null()) {
      out << " from " << cellText(left["source"]) << " (" << cellText(left["bundle_identifier"])
          << ")";
    }
    out << ": " << cellText(left["why"]) << "\n";
  }
}

// The text form: the same facts as the JSON, as aligned columns.
void printText(const json& info, std::ostream& out) {
  const json& period = info["period"];
  out << "Period: " << cellText(period["first_day"]) << " to " << cellText(period["last_day"])
      << " (" << info["time_zone"].get<std::string>() << "), " << period["samples"] << " samples\n";
  const json& me = info["characteristics"];
  out << "Date of birth: " << cellText(me["date_of_birth"])
      << ", biological sex: " << cellText(me["biological_sex"]) << "\n\n";
  printTypes(info, out);
  out << "\n";
  printSources(info, out);
  printLeftOut(info, out);
}

// What the samples of every type say: counts and days by type and by source, and what the
// summaries' rules leave out.
struct Tally {
  std::map<std::string, TypeStats> types;
  std::map<SourceKey, std::map<std::string, std::uint64_t>> sources;
  std::map<LeftOut, std::uint64_t> leftOut;
  std::set<std::int64_t> allDays;
  std::uint64_t total = 0;
};

// Why the rules leave a sample out, or nothing when a summary reads it.
class LeftOutRules {
 public:
  explicit LeftOutRules(const platform::OSVersion& version)
      : version_(version),
        valueWhy_("sleep values that OS version " + versionText(version) +
                  " does not know (sleep stages need 16.0: --os-version)") {}

  std::optional<LeftOut> of(const std::string& type, const platform::StoredSample& sample,
                            const SourceKey& source) const {
    if (sample.wasUserEntered.value_or(false)) {
      return readsHandEntries(type) ? std::nullopt : std::optional(LeftOut{type, {}, kHandWhy});
    }
    if (type != kSleepType) {
      return std::nullopt;
    }
    if (!SleepAnalysisBuilder::readsSource(source.bundleIdentifier)) {
      return LeftOut{type, source, kSourceWhy};
    }
    if (!SleepAnalysisBuilder::understandsValue(static_cast<std::int64_t>(sample.value),
                                                version_)) {
      return LeftOut{type, {}, valueWhy_};
    }
    return std::nullopt;
  }

 private:
  static constexpr const char* kHandWhy =
      "entered by hand: the sleep and physical summaries leave these out";
  static constexpr const char* kSourceWhy =
      "the sleep summary reads only the health store's own sources (bundle identifiers "
      "containing com.apple.health); to count them, map the source to such an identifier at "
      "import (velk import --sources, docs/exports.md)";
  platform::OSVersion version_;
  std::string valueWhy_;
};

Tally tallySamples(const platform::HealthDatabase& database, const std::string& zone,
                   const platform::OSVersion& version) {
  Tally tally;
  LocalDays days(zone);
  const LeftOutRules rules(version);
  for (const auto& type : database.sampleTypes()) {
    TypeStats& stats = tally.types[type];
    // A damaged part is left out here; runInfo reports the database's first failed read.
    const auto read = database.samples(type, std::nullopt, std::nullopt);
    if (read.isFailure()) {
      continue;
    }
    for (const auto& sample : read.value()) {
      ++stats.samples;
      stats.days.insert(days.dayOf(sample.start));
      const SourceKey source{sample.sourceName.str(), sample.sourceBundleIdentifier.str()};
      ++tally.sources[source][type];
      stats.enteredByHand += sample.wasUserEntered.value_or(false) ? 1u : 0u;
      if (auto left = rules.of(type, sample, source)) {
        ++tally.leftOut[*left];
      }
    }
    tally.total += stats.samples;
    tally.allDays.insert(stats.days.begin(), stats.days.end());
  }
  return tally;
}

json typesJson(const Tally& tally) {
  json types = json::array();
  for (const auto& [type, stats] : tally.types) {
    types.push_back({{"type", type},
                     {"samples", stats.samples},
                     {"first_day", dayOrNull(stats.days, true)},
                     {"last_day", dayOrNull(stats.days, false)},
                     {"days_with_data", stats.days.size()},
                     {"entered_by_hand", stats.enteredByHand}});
  }
  return types;
}

json sourcesJson(const Tally& tally, const platform::SourcePriority& priority) {
  std::set<std::string> identifiers;
  for (const auto& [source, counts] : tally.sources) {
    identifiers.insert(source.bundleIdentifier);
  }
  const auto places = daySumPlaces(identifiers, priority);
  json sources = json::array();
  for (const auto& [source, counts] : tally.sources) {
    sources.push_back(
        {{"name", source.name},
         {"bundle_identifier", source.bundleIdentifier},
         {"samples", counts},
         {"sleep_rules_read_it", SleepAnalysisBuilder::readsSource(source.bundleIdentifier)},
         {"day_sum_place", places.at(source.bundleIdentifier)}});
  }
  return sources;
}

json leftOutJson(const Tally& tally) {
  json leftOut = json::array();
  for (const auto& [left, count] : tally.leftOut) {
    const bool bySource = !left.source.bundleIdentifier.empty();
    leftOut.push_back(
        {{"type", left.type},
         {"records", count},
         {"source", bySource ? json(left.source.name) : json(nullptr)},
         {"bundle_identifier", bySource ? json(left.source.bundleIdentifier) : json(nullptr)},
         {"why", left.why}});
  }
  return leftOut;
}

}  // namespace

json describeHealthData() {
  const auto device = platform::Device::current();
  const auto& database = *device->healthDatabase();
  const Tally tally = tallySamples(database, device->timeZone(), device->osVersion());
  json info;
  info["time_zone"] = device->timeZone();
  info["period"] = {{"first_day", dayOrNull(tally.allDays, true)},
                    {"last_day", dayOrNull(tally.allDays, false)},
                    {"days_with_data", tally.allDays.size()},
                    {"samples", tally.total}};
  info["types"] = typesJson(tally);
  info["sources"] = sourcesJson(tally, database.sourcePriority());
  info["characteristics"] = characteristicsOf(database.characteristics());
  info["left_out_by_the_rules"] = leftOutJson(tally);
  return info;
}

int runInfo(const std::string& format, std::ostream& out, std::ostream& err) {
  const json info = describeHealthData();
  if (auto failed = platform::Device::current()->healthDatabase()->firstFailedRead()) {
    err << "velk: " << failed->message() << "\n";
    return kExitBadInput;
  }
  if (format == "text") {
    printText(info, out);
  } else {
    out << info.dump() << "\n";
  }
  return kExitSuccess;
}

}  // namespace velk::cli
