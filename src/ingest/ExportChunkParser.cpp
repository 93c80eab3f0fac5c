#include "ExportChunkParser.h"

#include <unicode/utf8.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <pugixml.hpp>
#include <unordered_map>

#include "velk/ingest/ExportDate.h"

namespace velk::ingest {

namespace {

using platform::SampleKind;
using platform::SampleRecord;

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
// parse, which moves decoded values over their escapes, so the line feeds found before count.
class LineCounter {
 public:
  explicit LineCounter(const ExportChunk& chunk) : chunk_(chunk) {}

  std::uint64_t lineAt(std::size_t offset) const {
    const auto& feeds = chunk_.lineFeeds;
    const auto before = std::lower_bound(feeds.begin(), feeds.end(), offset) - feeds.begin();
    return chunk_.firstLine + static_cast<std::uint64_t>(before);
  }

 private:
  const ExportChunk& chunk_;
};

class ChunkParser {
 public:
  ChunkParser(ExportChunk& chunk, const ChunkContext& context)
      : chunk_(chunk), context_(context), lines_(chunk) {
    // Apple's record lines are 250 to 450 bytes long.
    result_.records.reserve(chunk.bytes.size() / 300);
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
      offset = nextTopLevelStart(chunk_.bytes, errorAt + 1, context_.indent);
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
        if (nextTopLevelStart(chunk_.bytes, start + 1, context_.indent) > errorAt) {
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
    const std::string_view name = node.name();
    if (name == "Record") {
      return startRecord(node);
    }
    if (name == "MetadataEntry") {
      if (!frames_.empty() && frames_.back() == Frame::record) {
        readMetadata(node);
      }
    } else if (name == "Correlation") {
      ++correlationDepth_;
      return Frame::correlation;
    } else if (name == "Me" && frames_.empty()) {
      readCharacteristics(node);
    }
    return Frame::other;
  }

  void end() {
    const auto frame = frames_.back();
    frames_.pop_back();
    if (frame == Frame::record) {
      result_.records.push_back(std::move(pending_.back()));
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
    std::string_view type, sourceName, sourceVersion, device, unit, startDate, endDate, value;
    for (auto attribute = node.first_attribute(); attribute;
         attribute = attribute.next_attribute()) {
      const std::string_view name = attribute.name();
      const std::string_view text = attribute.value();
      switch (name.empty() ? '\0' : name.front()) {
        case 't':
          type = name == "type" ? text : type;
          break;
        case 's':
          if (name == "startDate") {
            startDate = text;
          } else if (name == "sourceName") {
            sourceName = text;
          } else if (name == "sourceVersion") {
            sourceVersion = text;
          }
          break;
        case 'e':
          endDate = name == "endDate" ? text : endDate;
          break;
        case 'u':
          unit = name == "unit" ? text : unit;
          break;
        case 'v':
          value = name == "value" ? text : value;
          break;
        case 'd':
          device = name == "device" ? text : device;
          break;
        default:
          break;
      }
    }
    if (type.empty() || startDate.empty() || endDate.empty()) {
      note(ExportIssue::missingAttribute, node);
      return Frame::skippedRecord;
    }
    const auto start = ExportDate::parse(startDate);
    const auto end = ExportDate::parse(endDate);
    if (!start || !end) {
      note(ExportIssue::unreadableDate, node, !start ? startDate : endDate);
      return Frame::skippedRecord;
    }
    const auto cleanType = typeText_.clean(type, controls_);
    const auto cleanUnit = unitText_.clean(unit, controls_);
    const auto cleanName = nameText_.clean(sourceName, controls_);
    const auto cleanVersion = versionText_.clean(sourceVersion, controls_);
    const auto cleanDevice = deviceText_.clean(device, controls_);
    if (!cleanType || !cleanUnit || !cleanName || !cleanVersion || !cleanDevice) {
      note(ExportIssue::malformedXml, node, "not UTF-8");
      return Frame::skippedRecord;
    }
    SampleRecord sample;
    if (cleanType->substr(0, kCategoryPrefix.size()) == kCategoryPrefix) {
      sample.kind = SampleKind::category;
      auto category = lookUp(kCategoryValues, value);
      if (!category) {
        if (const auto number = parseNumber(value); number && std::trunc(*number) == *number) {
          category = static_cast<std::int64_t>(*number);
        }
      }
      if (!category) {
        note(ExportIssue::unknownCategoryValue, node, value);
        return Frame::skippedRecord;
      }
      sample.value = static_cast<double>(*category);
    } else {
      const auto number = parseNumber(value);
      if (!number) {
        note(ExportIssue::nonNumericValue, node, value);
        return Frame::skippedRecord;
      }
      sample.kind = SampleKind::quantity;
      sample.value = *number;
      sample.unit = *cleanUnit;
    }
    if (context_.exportDate && *end > *context_.exportDate) {
      note(ExportIssue::dateAfterExport, node, endDate);
    }
    sample.type = *cleanType;
    sample.start = *start;
    sample.end = *end;
    sample.sourceName = *cleanName;
    sample.sourceBundleIdentifier = identifierFor(*cleanName, *cleanVersion, *cleanDevice);
    pending_.push_back(std::move(sample));
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

  // Records come in runs from one source, so the last answer is kept; a map holds the rest.
  const std::string& identifierFor(std::string_view name, std::string_view version,
                                   std::string_view device) {
    if (lastIdentifier_ != nullptr && name == lastName_ && version == lastVersion_ &&
        device == lastDevice_) {
      return *lastIdentifier_;
    }
    std::string key;
    key.reserve(name.size() + version.size() + device.size() + 2);
    key.append(name).append(1, '\x1f').append(version).append(1, '\x1f').append(device);
    auto found = identifiers_.find(key);
    if (found == identifiers_.end()) {
      auto identifier = context_.sources->identifierFor(name, version, device);
      found = identifiers_.emplace(std::move(key), std::move(identifier)).first;
    }
    lastName_ = name;
    lastVersion_ = version;
    lastDevice_ = device;
    lastIdentifier_ = &found->second;
    return found->second;
  }

  ExportChunk& chunk_;
  const ChunkContext& context_;
  LineCounter lines_;
  ChunkResult result_;
  std::uint64_t controls_ = 0;
  std::vector<Frame> frames_;
  std::vector<SampleRecord> pending_;  // the records whose element is open, innermost last
  int correlationDepth_ = 0;
  AttributeText typeText_, unitText_, nameText_, versionText_, deviceText_;
  std::unordered_map<std::string, std::string> identifiers_;
  std::string lastName_, lastVersion_, lastDevice_;
  const std::string* lastIdentifier_ = nullptr;
};

bool isLineStartOfElement(std::string_view text, std::size_t at, std::string_view indent) {
  const auto tag = at + indent.size();
  return tag + 1 < text.size() && text.compare(at, indent.size(), indent) == 0 &&
         text[tag] == '<' && text[tag + 1] != '/' && text[tag + 1] != '!' && text[tag + 1] != '?';
}

}  // namespace

std::uint64_t indexLines(ExportChunk& chunk) {
  auto& feeds = chunk.lineFeeds;
  feeds.clear();
  const char* const data = chunk.bytes.data();
  const char* const end = data + chunk.bytes.size();
  for (const char* at = data;
       (at = static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)))) !=
       nullptr;
       ++at) {
    feeds.push_back(static_cast<std::size_t>(at - data));
  }
  return feeds.size();
}

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
