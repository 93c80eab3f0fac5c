#include "RecordMapper.h"

#include <unicode/utf8.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include "ingest/ExportDate.h"
#include "platform/CanonicalUnits.h"
#include "platform/StoredSample.h"

namespace velk::ingest {

namespace {

using platform::SampleKind;

constexpr std::string_view kCategoryPrefix = "HKCategoryTypeIdentifier";
constexpr std::string_view kSleepAnalysis = "HKCategoryTypeIdentifierSleepAnalysis";

struct NamedValue {
  std::string_view name;
  std::int64_t value;
};

// Category values as exports write them, to the platform's integers.
constexpr NamedValue kCategoryValues[] = {
    {"HKCategoryValueSleepAnalysisInBed", 0},
    {"HKCategoryValueSleepAnalysisAsleepUnspecified", 1},
    {"HKCategoryValueSleepAnalysisAsleep", 1},
    {"HKCategoryValueSleepAnalysisAwake", 2},
    {"HKCategoryValueSleepAnalysisAsleepCore", 3},
    {"HKCategoryValueSleepAnalysisAsleepDeep", 4},
    {"HKCategoryValueSleepAnalysisAsleepREM", 5},
    {"HKCategoryValueNotApplicable", 0},
    {"HKCategoryValueAppleStandHourStood", 0},
    {"HKCategoryValueAppleStandHourIdle", 1},
};

constexpr NamedValue kBiologicalSexes[] = {
    {"HKBiologicalSexNotSet", 0},
    {"HKBiologicalSexFemale", 1},
    {"HKBiologicalSexMale", 2},
    {"HKBiologicalSexOther", 3},
};

template <std::size_t N>
std::optional<std::int64_t> lookUp(const NamedValue (&table)[N], std::string_view name) {
  for (const auto& entry : table) {
    if (entry.name == name) {
      return entry.value;
    }
  }
  return std::nullopt;
}

bool isPlainAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return c >= 0x20 && c < 0x7f; });  // char is signed here
}

// Attribute values as XML defines them, for the few that are kept: tab, line feed and carriage
// return (a CR LF pair counting once) become spaces. Two things the bytes of the file could not
// hold but an escape can, or that the parser does not check, are dealt with here too: forbidden
// characters written as references ("&#11;") become spaces like their raw bytes do, and a value
// that is not UTF-8 is refused.
class AttributeText {
 public:
  /// The clean text of `raw`, or nothing when it is not UTF-8. `controls` counts the forbidden
  /// characters replaced.
  std::optional<std::string_view> clean(std::string_view raw, std::uint64_t& controls) {
    if (isPlainAscii(raw)) {
      return raw;
    }
    text_.clear();
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(raw.data());
    const auto length = static_cast<std::int32_t>(raw.size());
    for (std::int32_t at = 0; at < length;) {
      const auto from = at;
      UChar32 c = 0;
      U8_NEXT(bytes, at, length, c);
      if (c < 0) {
        return std::nullopt;
      }
      if (c >= 0x20) {
        text_.append(
            raw.substr(static_cast<std::size_t>(from), static_cast<std::size_t>(at - from)));
        continue;
      }
      if (c == '\r' && at < length && bytes[at] == '\n') {
        continue;  // the line feed that follows stands for both
      }
      if (c != '\t' && c != '\n' && c != '\r') {
        ++controls;
      }
      text_.push_back(' ');
    }
    return std::string_view(text_);
  }

 private:
  std::string text_;
};

// The index in a batch table of the clean text of an attribute value, the text added when new.
// Records come in runs of one type and unit, so the last value is compared first; a map by
// value holds the others, so that each distinct value is cleaned once.
class InternedText {
 public:
  explicit InternedText(std::vector<std::string>& table) : table_(table) {
    for (std::size_t i = 0; i < table.size(); ++i) {
      known_.emplace(table[i], Entry{static_cast<std::uint32_t>(i), 0});
    }
  }

  /// The index, or nothing when the value is not UTF-8. `controls` counts the forbidden
  /// characters that the clean text replaced.
  std::optional<std::uint32_t> indexOf(std::string_view raw, std::uint64_t& controls) {
    if (last_ == nullptr || raw != std::string_view(last_->first)) {
      key_.assign(raw);
      auto found = known_.find(key_);
      if (found == known_.end()) {
        Entry entry;
        if (const auto cleaned = cleaner_.clean(key_, entry.controls)) {
          entry.index = static_cast<std::uint32_t>(table_.size());
          table_.emplace_back(*cleaned);
        }
        found = known_.emplace(key_, entry).first;
      }
      last_ = &*found;  // map nodes stay where they are
    }
    controls += last_->second.controls;
    return last_->second.index;
  }

 private:
  struct Entry {
    std::optional<std::uint32_t> index;  ///< nothing: not UTF-8
    std::uint64_t controls = 0;
  };
  std::vector<std::string>& table_;
  std::unordered_map<std::string, Entry> known_;
  const std::pair<const std::string, Entry>* last_ = nullptr;
  std::string key_;
  AttributeText cleaner_;
};

// The sources of a batch, by a record's sourceName, sourceVersion and device. Records come in
// runs from one source, so the last answer is kept; a map holds the rest.
class SourceTable {
 public:
  SourceTable(std::vector<ExportRecordSource>& table, const SourceIdentifierRule& rule)
      : table_(table), rule_(rule) {}

  /// The index in the table, or nothing when the attributes are no UTF-8.
  std::optional<std::uint32_t> indexOf(std::string_view name, std::string_view version,
                                       std::string_view device, std::uint64_t& controls) {
    if (!lastKnown_ || name != lastName_ || version != lastVersion_ || device != lastDevice_) {
      remember(name, version, device);
    }
    controls += last_->controls;
    return last_->source;
  }

 private:
  struct Entry {
    std::optional<std::uint32_t> source;  ///< nothing: not UTF-8
    std::uint64_t controls = 0;           ///< forbidden characters replaced in the attributes
  };

  void remember(std::string_view name, std::string_view version, std::string_view device) {
    key_.assign(name).append(1, '\x1f').append(version).append(1, '\x1f').append(device);
    auto found = known_.find(key_);
    if (found == known_.end()) {
      Entry entry;
      const auto cleanName = nameText_.clean(name, entry.controls);
      const auto cleanVersion = versionText_.clean(version, entry.controls);
      const auto cleanDevice = deviceText_.clean(device, entry.controls);
      if (cleanName && cleanVersion && cleanDevice) {
        entry.source = static_cast<std::uint32_t>(table_.size());
        table_.push_back(ExportRecordSource{
            rule_.identifierFor(*cleanName, *cleanVersion, *cleanDevice), std::string(*cleanName)});
      }
      found = known_.emplace(key_, entry).first;
    }
    lastKnown_ = true;
    lastName_.assign(name);
    lastVersion_.assign(version);
    lastDevice_.assign(device);
    last_ = &found->second;  // map nodes stay where they are
  }

  std::vector<ExportRecordSource>& table_;
  const SourceIdentifierRule& rule_;
  std::unordered_map<std::string, Entry> known_;
  std::string key_, lastName_, lastVersion_, lastDevice_;
  const Entry* last_ = nullptr;
  bool lastKnown_ = false;
  AttributeText nameText_, versionText_, deviceText_;
};

// Dates of one day and offset differ in their time only, and a reader meets two per record:
// the moment at which the last day began is kept, so that the next date of that day is a sum.
class DateReader {
 public:
  std::optional<Date> read(std::string_view text) {
    if (hasDay_ && text.size() == kCommonSize && std::memcmp(text.data(), day_.data(), 11) == 0 &&
        std::memcmp(text.data() + 19, day_.data() + 19, kCommonSize - 19) == 0) {
      if (const auto seconds = timeOfDay(text)) {
        return Date::fromReferenceSeconds(dayStart_ + *seconds);
      }
    }
    const auto date = ExportDate::parse(text);
    if (date && text.size() == kCommonSize) {
      if (const auto seconds = timeOfDay(text)) {
        day_.assign(text);
        dayStart_ = date->timeIntervalSinceReferenceDate() - *seconds;
        hasDay_ = true;
      }
    }
    return date;
  }

 private:
  static constexpr std::size_t kCommonSize = 25;  // "2024-03-10 08:30:00 +0100"

  // "08:30:00" at offset 11 of a date of the common size, in seconds, checked as the full
  // reading checks it.
  static std::optional<double> timeOfDay(std::string_view text) {
    const auto digit = [&](std::size_t at) { return static_cast<unsigned>(text[at] - '0'); };
    for (std::size_t at = 11; at < 19; ++at) {
      if (at == 13 || at == 16 ? text[at] != ':' : digit(at) > 9) {
        return std::nullopt;
      }
    }
    const auto hour = digit(11) * 10 + digit(12);
    const auto minute = digit(14) * 10 + digit(15);
    const auto second = digit(17) * 10 + digit(18);
    if (hour > 23 || minute > 59 || second > 59) {
      return std::nullopt;
    }
    return static_cast<double>(hour * 3600 + minute * 60 + second);
  }

  std::string day_;
  double dayStart_ = 0;
  bool hasDay_ = false;
};

// A category value by its name, or a whole number as it is (one that an integer holds: "1e81"
// is whole but no category).
std::optional<std::int64_t> categoryValue(std::string_view text) {
  if (const auto named = lookUp(kCategoryValues, text)) {
    return named;
  }
  constexpr double kIntegerLimit = 9223372036854775808.0;  // 2^63
  if (const auto number = readNumber(text); number && std::trunc(*number) == *number &&
                                            *number >= -kIntegerLimit && *number < kIntegerLimit) {
    return static_cast<std::int64_t>(*number);
  }
  return std::nullopt;
}

MappedRecord skipped(ExportIssue issue, std::string_view detail = {}) {
  return MappedRecord{std::nullopt, issue, detail};
}

}  // namespace

std::optional<double> readNumber(std::string_view text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

std::optional<std::int64_t> biologicalSexNamed(std::string_view text) {
  if (text.size() == 1 && text[0] >= '0' && text[0] <= '3') {
    return text[0] - '0';  // the first exports wrote the platform's integer
  }
  return lookUp(kBiologicalSexes, text);
}

void RecordFields::take(std::string_view name, std::string_view text) {
  // By length first: each case is then one comparison of a known size.
  const auto is = [name](std::string_view wanted) {
    return std::memcmp(name.data(), wanted.data(), wanted.size()) == 0;
  };
  const auto keep = [this, text](std::string_view& field) {
    repeated = repeated || field.data() != nullptr;
    field = text;
  };
  switch (name.size()) {
    case 4:
      if (is("type")) {
        keep(type);
      } else if (is("unit")) {
        keep(unit);
      }
      break;
    case 5:
      if (is("value")) {
        keep(value);
      }
      break;
    case 6:
      if (is("device")) {
        keep(device);
      } else if (is("source")) {
        keep(legacySource);
      }
      break;
    case 7:
      if (is("endDate")) {
        keep(endDate);
      } else if (is("average")) {
        keep(average);
      }
      break;
    case 9:
      if (is("startDate")) {
        keep(startDate);
      }
      break;
    case 10:
      if (is("sourceName")) {
        keep(sourceName);
      }
      break;
    case 13:
      if (is("sourceVersion")) {
        keep(sourceVersion);
      }
      break;
    default:
      break;
  }
}

class RecordMapper::Tables {
 public:
  Tables(ExportRecordBatch& batch, const SourceIdentifierRule& rule)
      : types(batch.types),
        units(batch.units),
        sources(batch.sources, rule),
        typeTable_(batch.types),
        unitTable_(batch.units) {}

  // Whether a quantity of the batch's type and unit at these indices may have `value`. Units
  // that cannot hold the type pass here: the store leaves those records out and counts them.
  bool isPossible(std::uint32_t type, std::uint32_t unit, double value) {
    const std::uint64_t key = (std::uint64_t{type} << 32) | unit;
    if (lastUnits_ == nullptr || lastKey_ != key) {
      auto [found, added] = quantityUnits_.try_emplace(key);
      if (added) {
        const std::string& typeText = typeTable_[type];
        const std::string& unitText = unitTable_[unit];
        if (platform::isStorableQuantityUnit(typeText, unitText)) {
          found->second.unit = platform::HKUnit::unitFromString(unitText);
          found->second.canonical = platform::canonicalUnitForQuantityType(typeText);
        }
      }
      lastKey_ = key;
      lastUnits_ = &found->second;
    }
    return !lastUnits_->unit ||
           platform::isPossibleQuantity(value, *lastUnits_->unit, lastUnits_->canonical);
  }

  DateReader dates;
  InternedText types, units;
  SourceTable sources;
  std::uint64_t controls = 0;

 private:
  struct QuantityUnits {
    std::optional<platform::HKUnit> unit;  ///< absent: not a unit the store holds the type in
    std::optional<platform::HKUnit> canonical;
  };
  const std::vector<std::string>& typeTable_;
  const std::vector<std::string>& unitTable_;
  std::unordered_map<std::uint64_t, QuantityUnits> quantityUnits_;
  std::uint64_t lastKey_ = 0;
  const QuantityUnits* lastUnits_ = nullptr;
};

RecordMapper::RecordMapper(ExportRecordBatch& batch, const SourceIdentifierRule& sources,
                           std::optional<Date> exportDate)
    : batch_(batch), exportDate_(exportDate), tables_(std::make_unique<Tables>(batch, sources)) {}

RecordMapper::~RecordMapper() = default;

std::uint64_t RecordMapper::controlsReplaced() const {
  return tables_->controls;
}

std::optional<MappedRecord> RecordMapper::setValue(const RecordFields& fields, std::uint32_t type,
                                                   std::uint32_t unit, ExportRecord& record) {
  if (batch_.types[type].starts_with(kCategoryPrefix)) {
    const auto category = categoryValue(fields.value);
    if (!category) {
      // Only the sleep analysis is read by a summary: a value lost elsewhere (an event without
      // one, a value name of a type the table does not know) loses nothing reported.
      if (batch_.types[type] != kSleepAnalysis) {
        return MappedRecord{};
      }
      return skipped(ExportIssue::unknownCategoryValue, fields.value);
    }
    record.kind = SampleKind::category;
    record.value = static_cast<double>(*category);
    return std::nullopt;
  }
  // The first exports wrote some quantities as statistics of readings (min, max, average,
  // recordCount) without a value: the average is the value.
  const auto number =
      readNumber(fields.value.empty() && !fields.average.empty() ? fields.average : fields.value);
  if (!number) {
    return skipped(ExportIssue::nonNumericValue, fields.value);
  }
  if (!tables_->isPossible(type, unit, *number)) {
    return skipped(ExportIssue::impossibleValue, fields.value);
  }
  record.kind = SampleKind::quantity;
  record.value = *number;
  record.unit = unit;
  return std::nullopt;
}

MappedRecord RecordMapper::map(const RecordFields& fields) {
  if (fields.repeated) {
    return skipped(ExportIssue::repeatedAttribute);  // which of the two was meant is unknown
  }
  if (fields.type.empty() || fields.startDate.empty() || fields.endDate.empty()) {
    return skipped(ExportIssue::missingAttribute);
  }
  auto& tables = *tables_;
  const auto start = tables.dates.read(fields.startDate);
  const auto end = tables.dates.read(fields.endDate);
  if (!start || !end) {
    return skipped(ExportIssue::unreadableDate, !start ? fields.startDate : fields.endDate);
  }
  if (*end < *start) {
    return skipped(ExportIssue::endBeforeStart, fields.endDate);  // the store holds none such
  }
  const auto type = tables.types.indexOf(fields.type, tables.controls);
  const auto unit = tables.units.indexOf(fields.unit, tables.controls);
  const auto source =
      tables.sources.indexOf(fields.sourceName.empty() ? fields.legacySource : fields.sourceName,
                             fields.sourceVersion, fields.device, tables.controls);
  if (!type || !unit || !source) {
    return skipped(ExportIssue::malformedXml, "not UTF-8");
  }
  ExportRecord record;
  if (auto instead = setValue(fields, *type, *unit, record)) {
    return *instead;
  }
  record.type = *type;
  record.start = *start;
  record.end = *end;
  record.source = *source;
  MappedRecord mapped{record, std::nullopt, {}};
  if (exportDate_ && *end > *exportDate_) {
    mapped.issue = ExportIssue::dateAfterExport;
    mapped.detail = fields.endDate;
  }
  return mapped;
}

}  // namespace velk::ingest
