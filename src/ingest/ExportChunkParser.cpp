#include "ExportChunkParser.h"

#include <unicode/utf8.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <pugixml.hpp>
#include <unordered_map>

#include "ingest/ExportDate.h"

namespace velk::ingest {

namespace {

using platform::SampleKind;

constexpr std::string_view kCategoryPrefix = "HKCategoryTypeIdentifier";

// Only elements and their attributes are of use: no text, comments or processing instructions,
// no line-end or whitespace conversion (the text is normalised below, for the few values that
// are kept, so that line breaks stay where they are for the line numbers of the report).
// Escapes are decoded: source names hold "&#8217;", device descriptions "&lt;".
constexpr unsigned kParseOptions = pugi::parse_minimal | pugi::parse_escapes | pugi::parse_fragment;

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

std::optional<double> parseNumber(std::string_view text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

bool isPlainAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return c >= 0x20 && c < 0x7f; });  // char is signed here
}

// An attribute value as the in-place parse leaves it: zero-terminated in the part's bytes. Its
// length is taken only where it is needed, since most values are compared with the record
// before's and found the same: finding the lengths of every value cost 5% of an import.
class RawValue {
 public:
  RawValue() = default;
  /// `text`, from a part whose bytes are [begin, end) or from elsewhere (pugixml's "").
  RawValue(const char* text, const char* begin, const char* end)
      : text_(text),
        room_(std::less_equal<>{}(begin, text) && std::less<>{}(text, end)
                  ? static_cast<std::size_t>(end - text)
                  : 0) {}

  bool empty() const { return text_[0] == '\0'; }
  std::string_view view() const { return text_; }

  /// Whether the value is `known` (which holds no zero byte).
  bool equals(std::string_view known) const {
    return equalsAt(0, known) && text_[known.size()] == '\0';
  }

  /// Whether bytes [from, from + known.size()) of the value are `known`, when the bytes before
  /// `from` are known to hold no zero byte.
  bool equalsAt(std::size_t from, std::string_view known) const {
    const char* at = text_ + from;
    std::size_t i = 0;
    if (from + known.size() <= room_) {
      // Within the part's bytes, whole words may be read past the value's end: the word that
      // holds the end differs from the known text there, which holds no zero byte.
      for (; i + 8 <= known.size(); i += 8) {
        std::uint64_t mine = 0;
        std::uint64_t theirs = 0;
        std::memcpy(&mine, at + i, 8);
        std::memcpy(&theirs, known.data() + i, 8);
        if (mine != theirs) {
          return false;
        }
      }
    }
    for (; i < known.size(); ++i) {  // byte by byte, never past the value's end
      if (at[i] != known[i]) {
        return false;
      }
    }
    return true;
  }

  char operator[](std::size_t at) const { return text_[at]; }

 private:
  const char* text_ = "";
  std::size_t room_ = 0;  ///< bytes of the part from `text_` on; 0 when not in the part
};

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

// The index in a batch table of the clean text of a raw attribute value, the text added when
// new. Records come in runs of one type and unit, so the last raw value is compared first; a map
// by raw value holds the others, so that each distinct value is cleaned once.
class InternedText {
 public:
  explicit InternedText(std::vector<std::string>& table) : table_(table) {
    for (std::size_t i = 0; i < table.size(); ++i) {
      known_.emplace(table[i], Entry{static_cast<std::uint32_t>(i), 0});
    }
  }

  /// The index, or nothing when the value is not UTF-8. `controls` counts the forbidden
  /// characters that the clean text replaced.
  std::optional<std::uint32_t> indexOf(RawValue raw, std::uint64_t& controls) {
    if (last_ == nullptr || !raw.equals(last_->first)) {
      key_.assign(raw.view());
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

// Dates of one day and offset differ in their time only, and a reader meets two per record:
// the moment at which the last day began is kept, so that the next date of that day is a sum.
class DateReader {
 public:
  std::optional<Date> read(RawValue raw) {
    // Each byte is looked at only when those before it were not the value's end.
    if (hasDay_ && raw.equalsAt(0, std::string_view(day_).substr(0, 11))) {
      if (const auto seconds = timeOfDay(raw);
          seconds && raw.equalsAt(19, std::string_view(day_).substr(19)) &&
          raw[kCommonSize] == '\0') {
        return Date::fromReferenceSeconds(dayStart_ + *seconds);
      }
    }
    const auto text = raw.view();
    const auto date = ExportDate::parse(text);
    if (date && text.size() == kCommonSize) {
      if (const auto seconds = timeOfDay(raw)) {
        day_.assign(text);
        dayStart_ = date->timeIntervalSinceReferenceDate() - *seconds;
        hasDay_ = true;
      }
    }
    return date;
  }

 private:
  static constexpr std::size_t kCommonSize = 25;  // "2024-03-10 08:30:00 +0100"

  // "08:30:00" at offset 11, in seconds, checked as the full reading checks it. The first 11
  // bytes are no zero; the others are looked at in order, up to the first that fails.
  static std::optional<double> timeOfDay(RawValue text) {
    const auto digit = [&](std::size_t at) { return static_cast<unsigned>(text[at] - '0'); };
    for (std::size_t at = 11; at < 19; ++at) {
      if (at == 13 || at == 16 ? text[at] != ':' : digit(at) > 9) {
        return std::nullopt;
      }
    }
    const auto hour = digit(11) * 10 + digit(12);
    const auto minute = digit(14) * 10 + digit(15);
    const auto second = digit(17) * 10 + digit(18);
    if (hour > 23 || minute > 59 || second > 60) {
      return std::nullopt;
    }
    return static_cast<double>(hour * 3600 + minute * 60 + second);
  }

  std::string day_;
  double dayStart_ = 0;
  bool hasDay_ = false;
};

// Whether the attribute name `name` is `wanted`, compared in a loop that the compiler unrolls
// for each name (a call of strcmp per attribute costs more than the comparison).
template <std::size_t N>
bool sameName(const char* name, const char (&wanted)[N]) {
  for (std::size_t i = 0; i < N; ++i) {  // up to and with the terminating zero
    if (name[i] != wanted[i]) {
      return false;
    }
  }
  return true;
}

// Where in the part an element starts: its name is cut out of the part's bytes in place.
std::size_t offsetOf(pugi::xml_node node, const char* base, std::size_t size) {
  const char* name = node.name();
  if (name <= base || name > base + size) {
    return 0;
  }
  return static_cast<std::size_t>(name - base) - 1;
}

pugi::xml_node firstElementChild(pugi::xml_node node) {
  auto child = node.first_child();
  while (child && child.type() != pugi::node_element) {
    child = child.next_sibling();
  }
  return child;
}

pugi::xml_node nextElementSibling(pugi::xml_node node) {
  auto next = node.next_sibling();
  while (next && next.type() != pugi::node_element) {
    next = next.next_sibling();
  }
  return next;
}

pugi::xml_node lastElementChild(pugi::xml_node node) {
  auto child = node.last_child();
  while (child && child.type() != pugi::node_element) {
    child = child.previous_sibling();
  }
  return child;
}

// The line on which an offset of the part lies. The bytes themselves no longer tell after the
// parse, which moves decoded values over their escapes, so the line feeds indexed before count.
class LineCounter {
 public:
  explicit LineCounter(const ExportChunk& chunk) : chunk_(chunk) {}

  std::uint64_t lineAt(std::size_t offset) const {
    return chunk_.firstLine + chunk_.lines.feedsBefore(offset);
  }

 private:
  const ExportChunk& chunk_;
};

class ChunkParser {
 public:
  ChunkParser(ExportChunk& chunk, const ChunkContext& context)
      : chunk_(chunk),
        context_(context),
        lines_(chunk),
        types_(result_.batch.types),
        units_(result_.batch.units) {
    // Apple's record lines are 250 to 450 bytes long.
    result_.batch.records.reserve(chunk.bytes.size() / 300);
  }

  ChunkResult run() {
    char* const bytes = chunk_.bytes.data();
    const auto size = chunk_.bytes.size();
    std::size_t offset = 0;
    pugi::xml_document document;
    while (offset < size) {
      const auto parsed = document.load_buffer_inplace(bytes + offset, size - offset, kParseOptions,
                                                       pugi::encoding_utf8);
      if (parsed) {
        readElements(document, std::string_view::npos);
        break;
      }
      const auto errorAt =
          offset + static_cast<std::size_t>(std::max<std::ptrdiff_t>(parsed.offset, 0));
      readElements(document, errorAt);
      result_.report.note(ExportIssue::malformedXml, lines_.lineAt(errorAt), parsed.description());
      offset = nextTopLevelStart(viewOf(chunk_.bytes), errorAt + 1, context_.indent);
      if (offset == std::string_view::npos) {
        break;
      }
    }
    if (controls_ > 0) {
      result_.report.noteMany(ExportIssue::controlCharacters, controls_);
    }
    return std::move(result_);
  }

 private:
  enum class Frame : std::uint8_t { other, record, skippedRecord, correlation, correlationRecord };

  // The top-level elements of `document`. After damage at `errorAt` the tree holds the
  // elements up to it, the last of them perhaps unfinished: it is taken only when a later
  // top-level element started before the damage.
  void readElements(const pugi::xml_document& document, std::size_t errorAt) {
    const auto last = lastElementChild(document);
    for (auto top = firstElementChild(document); top; top = nextElementSibling(top)) {
      if (top == last && errorAt != std::string_view::npos) {
        const auto start = offsetOf(top, chunk_.bytes.data(), chunk_.bytes.size());
        if (nextTopLevelStart(viewOf(chunk_.bytes), start + 1, context_.indent) > errorAt) {
          break;
        }
      }
      readTree(top);
    }
  }

  // Visits the elements of one top-level element in document order without recursion (a
  // damaged file may nest elements deeper than any stack), closing each after its children.
  void readTree(pugi::xml_node top) {
    frames_.clear();
    pending_.clear();
    correlationDepth_ = 0;
    auto node = top;
    while (true) {
      frames_.push_back(start(node));
      if (const auto child = firstElementChild(node)) {
        node = child;
        continue;
      }
      while (true) {
        end();
        if (node == top) {
          return;
        }
        if (const auto next = nextElementSibling(node)) {
          node = next;
          break;
        }
        node = node.parent();
      }
    }
  }

  void note(ExportIssue issue, pugi::xml_node at, std::string_view detail = {}) {
    auto& report = result_.report;
    if (report.wantsLine(issue)) {
      report.note(issue, lines_.lineAt(offsetOf(at, chunk_.bytes.data(), chunk_.bytes.size())),
                  detail);
    } else {
      report.noteMany(issue, 1);
    }
  }

  Frame start(pugi::xml_node node) {
    const char* name = node.name();
    if (sameName(name, "Record")) {
      return startRecord(node);
    }
    if (sameName(name, "MetadataEntry")) {
      if (!frames_.empty() && frames_.back() == Frame::record) {
        readMetadata(node);
      }
    } else if (sameName(name, "Correlation")) {
      ++correlationDepth_;
      return Frame::correlation;
    } else if (sameName(name, "Me") && frames_.empty()) {
      readCharacteristics(node);
    }
    return Frame::other;
  }

  void end() {
    const auto frame = frames_.back();
    frames_.pop_back();
    if (frame == Frame::record) {
      result_.batch.records.push_back(pending_.back());
      pending_.pop_back();
      ++result_.report.recordsRead;
    } else if (frame == Frame::correlation) {
      --correlationDepth_;
    }
  }

  Frame startRecord(pugi::xml_node node) {
    if (correlationDepth_ > 0) {
      ++result_.report.correlationRecordsSkipped;
      return Frame::correlationRecord;
    }
    if (std::any_of(frames_.begin(), frames_.end(), [](Frame frame) {
          return frame == Frame::record || frame == Frame::skippedRecord;
        })) {
      note(ExportIssue::nestedRecord, node);
    }
    const char* const partBegin = chunk_.bytes.data();
    const char* const partEnd = partBegin + chunk_.bytes.size();
    RawValue type, sourceName, sourceVersion, device, unit, startDate, endDate, value;
    for (auto attribute = node.first_attribute(); attribute;
         attribute = attribute.next_attribute()) {
      const char* name = attribute.name();
      const auto is = [name](const auto& wanted) { return sameName(name, wanted); };
      const auto raw = [&] { return RawValue(attribute.value(), partBegin, partEnd); };
      switch (name[0]) {
        case 't':
          type = is("type") ? raw() : type;
          break;
        case 's':
          if (is("startDate")) {
            startDate = raw();
          } else if (is("sourceName")) {
            sourceName = raw();
          } else if (is("sourceVersion")) {
            sourceVersion = raw();
          }
          break;
        case 'e':
          endDate = is("endDate") ? raw() : endDate;
          break;
        case 'u':
          unit = is("unit") ? raw() : unit;
          break;
        case 'v':
          value = is("value") ? raw() : value;
          break;
        case 'd':
          device = is("device") ? raw() : device;
          break;
        default:
          break;
      }
    }
    if (type.empty() || startDate.empty() || endDate.empty()) {
      note(ExportIssue::missingAttribute, node);
      return Frame::skippedRecord;
    }
    const auto start = dates_.read(startDate);
    const auto end = dates_.read(endDate);
    if (!start || !end) {
      note(ExportIssue::unreadableDate, node, (!start ? startDate : endDate).view());
      return Frame::skippedRecord;
    }
    const auto typeIndex = types_.indexOf(type, controls_);
    const auto unitIndex = units_.indexOf(unit, controls_);
    const auto* source = sourceFor(sourceName, sourceVersion, device);
    if (!typeIndex || !unitIndex || source == nullptr) {
      note(ExportIssue::malformedXml, node, "not UTF-8");
      return Frame::skippedRecord;
    }
    ExportRecord sample;
    if (result_.batch.types[*typeIndex].starts_with(kCategoryPrefix)) {
      sample.kind = SampleKind::category;
      auto category = lookUp(kCategoryValues, value.view());
      if (!category) {
        if (const auto number = parseNumber(value.view());
            number && std::trunc(*number) == *number) {
          category = static_cast<std::int64_t>(*number);
        }
      }
      if (!category) {
        note(ExportIssue::unknownCategoryValue, node, value.view());
        return Frame::skippedRecord;
      }
      sample.value = static_cast<double>(*category);
    } else {
      const auto number = parseNumber(value.view());
      if (!number) {
        note(ExportIssue::nonNumericValue, node, value.view());
        return Frame::skippedRecord;
      }
      sample.kind = SampleKind::quantity;
      sample.value = *number;
      sample.unit = *unitIndex;
    }
    if (context_.exportDate && *end > *context_.exportDate) {
      note(ExportIssue::dateAfterExport, node, endDate.view());
    }
    sample.type = *typeIndex;
    sample.start = *start;
    sample.end = *end;
    sample.source = *source;
    pending_.push_back(sample);
    return Frame::record;
  }

  void readMetadata(pugi::xml_node node) {
    const std::string_view key = node.attribute("key").value();
    if (key == "HKWasUserEntered") {
      const std::string_view value = node.attribute("value").value();
      const auto number = parseNumber(value);
      pending_.back().wasUserEntered = number ? *number != 0 : value == "true";
    }
  }

  void readCharacteristics(pugi::xml_node node) {
    platform::Characteristics characteristics;
    for (auto attribute = node.first_attribute(); attribute;
         attribute = attribute.next_attribute()) {
      const std::string_view name = attribute.name();
      const std::string_view value = attribute.value();
      if (name == "HKCharacteristicTypeIdentifierDateOfBirth" && !value.empty()) {
        if (const auto day = ExportDate::parseDay(value)) {
          characteristics.dateOfBirth = *day;
        } else {
          note(ExportIssue::unreadableDate, node, value);
        }
      } else if (name == "HKCharacteristicTypeIdentifierBiologicalSex" && !value.empty()) {
        if (const auto sex = lookUp(kBiologicalSexes, value)) {
          characteristics.biologicalSex = *sex;
        } else {
          note(ExportIssue::unknownCategoryValue, node, value);
        }
      }
    }
    result_.characteristics = std::move(characteristics);
  }

  // The index in the batch's sources of a record's source, from its raw attributes, or null when
  // they are no UTF-8. Records
  // come in runs from one source, so the last answer is kept; a map holds the rest.
  const std::uint32_t* sourceFor(RawValue rawName, RawValue rawVersion, RawValue rawDevice) {
    if (lastKnown_ && rawName.equals(lastName_) && rawVersion.equals(lastVersion_) &&
        rawDevice.equals(lastDevice_)) {
      controls_ += lastControls_;
      return lastSource_;
    }
    const auto name = rawName.view();
    const auto version = rawVersion.view();
    const auto device = rawDevice.view();
    std::string key;
    key.reserve(name.size() + version.size() + device.size() + 2);
    key.append(name).append(1, '\x1f').append(version).append(1, '\x1f').append(device);
    auto found = sources_.find(key);
    if (found == sources_.end()) {
      SourceEntry entry;
      const auto cleanName = nameText_.clean(name, entry.controls);
      const auto cleanVersion = versionText_.clean(version, entry.controls);
      const auto cleanDevice = deviceText_.clean(device, entry.controls);
      if (cleanName && cleanVersion && cleanDevice) {
        auto& sources = result_.batch.sources;
        entry.source = static_cast<std::uint32_t>(sources.size());
        sources.push_back(ExportRecordSource{
            context_.sources->identifierFor(*cleanName, *cleanVersion, *cleanDevice),
            std::string(*cleanName)});
      }
      found = sources_.emplace(std::move(key), std::move(entry)).first;
    }
    lastKnown_ = true;
    lastName_ = name;
    lastVersion_ = version;
    lastDevice_ = device;
    lastControls_ = found->second.controls;
    lastSource_ = found->second.source ? &*found->second.source : nullptr;
    controls_ += lastControls_;
    return lastSource_;
  }

  ExportChunk& chunk_;
  const ChunkContext& context_;
  LineCounter lines_;
  ChunkResult result_;
  std::uint64_t controls_ = 0;
  std::vector<Frame> frames_;
  std::vector<ExportRecord> pending_;  // the records whose element is open, innermost last
  int correlationDepth_ = 0;
  DateReader dates_;
  InternedText types_, units_;
  AttributeText nameText_, versionText_, deviceText_;
  struct SourceEntry {
    std::optional<std::uint32_t> source;  ///< nothing: not UTF-8
    std::uint64_t controls = 0;           ///< forbidden characters replaced in the raw attributes
  };
  std::unordered_map<std::string, SourceEntry> sources_;
  std::string lastName_, lastVersion_, lastDevice_;
  std::uint64_t lastControls_ = 0;
  const std::uint32_t* lastSource_ = nullptr;
  bool lastKnown_ = false;
};

bool isLineStartOfElement(std::string_view text, std::size_t at, std::string_view indent) {
  const auto tag = at + indent.size();
  return tag + 1 < text.size() && text.compare(at, indent.size(), indent) == 0 &&
         text[tag] == '<' && text[tag + 1] != '/' && text[tag + 1] != '!' && text[tag + 1] != '?';
}

}  // namespace

ChunkResult parseChunk(ExportChunk& chunk, const ChunkContext& context) {
  return ChunkParser(chunk, context).run();
}

std::size_t nextTopLevelStart(std::string_view text, std::size_t from, std::string_view indent) {
  if (from == 0) {
    if (isLineStartOfElement(text, 0, indent)) {
      return 0;
    }
    from = 1;
  }
  for (auto newline = text.find('\n', from - 1); newline != std::string_view::npos;
       newline = text.find('\n', newline + 1)) {
    if (isLineStartOfElement(text, newline + 1, indent)) {
      return newline + 1;
    }
  }
  return std::string_view::npos;
}

std::size_t lastTopLevelStart(std::string_view text, std::string_view indent) {
  for (auto newline = text.rfind('\n'); newline != std::string_view::npos && newline > 0;
       newline = text.rfind('\n', newline - 1)) {
    if (isLineStartOfElement(text, newline + 1, indent)) {
      return newline + 1;
    }
  }
  return std::string_view::npos;
}

}  // namespace velk::ingest
