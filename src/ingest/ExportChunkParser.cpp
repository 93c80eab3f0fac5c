#include "ExportChunkParser.h"

#include <expat.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <memory>
#include <unordered_map>

#include "velk/ingest/ExportDate.h"

namespace velk::ingest {

namespace {

using platform::SampleKind;
using platform::SampleRecord;

constexpr std::string_view kCategoryPrefix = "HKCategoryTypeIdentifier";
constexpr std::string_view kRootOpen = "<HealthData>";
constexpr std::string_view kRootClose = "</HealthData>";

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

// The attributes of a Record that the store needs.
struct RecordAttributes {
  std::string_view type, sourceName, sourceVersion, device, unit, startDate, endDate, value;
  bool hasValue = false;

  explicit RecordAttributes(const XML_Char** attributes) {
    for (auto a = attributes; *a != nullptr; a += 2) {
      const std::string_view name(a[0]);
      const std::string_view text(a[1]);
      if (name == "type") {
        type = text;
      } else if (name == "sourceName") {
        sourceName = text;
      } else if (name == "sourceVersion") {
        sourceVersion = text;
      } else if (name == "device") {
        device = text;
      } else if (name == "unit") {
        unit = text;
      } else if (name == "startDate") {
        startDate = text;
      } else if (name == "endDate") {
        endDate = text;
      } else if (name == "value") {
        value = text;
        hasValue = true;
      }
    }
  }
};

class ChunkParser {
 public:
  ChunkParser(const ExportChunk& chunk, const ChunkContext& context)
      : chunk_(chunk), context_(context) {
    // Apple's record lines are 250 to 450 bytes long.
    result_.records.reserve(chunk.bytes.size() / 300);
  }

  ChunkResult run() {
    std::size_t offset = 0;
    std::uint64_t line = chunk_.firstLine;
    while (true) {
      const auto errorOffset = parseFrom(offset, line);
      if (!errorOffset) {
        break;
      }
      const auto resume =
          nextTopLevelStart(chunk_.bytes, std::max(*errorOffset, offset) + 1, context_.indent);
      if (resume == std::string_view::npos) {
        break;
      }
      const auto skipped = chunk_.bytes.data();
      line += static_cast<std::uint64_t>(std::count(skipped + offset, skipped + resume, '\n'));
      offset = resume;
    }
    return std::move(result_);
  }

 private:
  enum class Frame : std::uint8_t { other, record, skippedRecord, correlation, correlationRecord };

  struct ParserDeleter {
    void operator()(XML_ParserStruct* parser) const { XML_ParserFree(parser); }
  };

  // Parses the chunk from `offset`, whose first byte lies on `line`. Returns the offset of the
  // error in the chunk when the XML there is broken.
  std::optional<std::size_t> parseFrom(std::size_t offset, std::uint64_t line) {
    std::unique_ptr<XML_ParserStruct, ParserDeleter> parser(XML_ParserCreate("UTF-8"));
    parser_ = parser.get();
    lineBase_ = line;
    frames_.clear();
    pending_.clear();
    correlationDepth_ = 0;
    XML_SetUserData(parser_, this);
    XML_SetElementHandler(parser_, &ChunkParser::onStart, &ChunkParser::onEnd);

    const auto body = std::string_view(chunk_.bytes).substr(offset);
    const bool parsed =
        XML_Parse(parser_, kRootOpen.data(), static_cast<int>(kRootOpen.size()), 0) ==
            XML_STATUS_OK &&
        XML_Parse(parser_, body.data(), static_cast<int>(body.size()), 0) == XML_STATUS_OK &&
        XML_Parse(parser_, kRootClose.data(), static_cast<int>(kRootClose.size()), 1) ==
            XML_STATUS_OK;
    if (parsed) {
      return std::nullopt;
    }
    const auto index = XML_GetCurrentByteIndex(parser_) - static_cast<XML_Index>(kRootOpen.size());
    result_.report.note(ExportIssue::malformedXml, currentLine(),
                        XML_ErrorString(XML_GetErrorCode(parser_)));
    return offset + static_cast<std::size_t>(std::max<XML_Index>(index, 0));
  }

  std::uint64_t currentLine() const { return lineBase_ + XML_GetCurrentLineNumber(parser_) - 1; }

  void note(ExportIssue issue, std::string_view detail = {}) {
    auto& report = result_.report;
    if (report.wantsLine(issue)) {
      report.note(issue, currentLine(), detail);
    } else {
      report.noteMany(issue, 1);
    }
  }

  static void XMLCALL onStart(void* self, const XML_Char* name, const XML_Char** attributes) {
    static_cast<ChunkParser*>(self)->start(name, attributes);
  }
  static void XMLCALL onEnd(void* self, const XML_Char* /*name*/) {
    static_cast<ChunkParser*>(self)->end();
  }

  void start(std::string_view name, const XML_Char** attributes) {
    if (name == "Record") {
      frames_.push_back(startRecord(attributes));
    } else if (name == "MetadataEntry") {
      if (!frames_.empty() && frames_.back() == Frame::record) {
        readMetadata(attributes);
      }
      frames_.push_back(Frame::other);
    } else if (name == "Correlation") {
      ++correlationDepth_;
      frames_.push_back(Frame::correlation);
    } else if (name == "Me" && frames_.size() == 1) {
      readCharacteristics(attributes);
      frames_.push_back(Frame::other);
    } else {
      frames_.push_back(Frame::other);
    }
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

  Frame startRecord(const XML_Char** attributes) {
    if (correlationDepth_ > 0) {
      ++result_.report.correlationRecordsSkipped;
      return Frame::correlationRecord;
    }
    if (std::any_of(frames_.begin(), frames_.end(), [](Frame frame) {
          return frame == Frame::record || frame == Frame::skippedRecord;
        })) {
      note(ExportIssue::nestedRecord);
    }
    const RecordAttributes record(attributes);
    if (record.type.empty() || record.startDate.empty() || record.endDate.empty()) {
      note(ExportIssue::missingAttribute);
      return Frame::skippedRecord;
    }
    const auto start = ExportDate::parse(record.startDate);
    const auto end = ExportDate::parse(record.endDate);
    if (!start || !end) {
      note(ExportIssue::unreadableDate, !start ? record.startDate : record.endDate);
      return Frame::skippedRecord;
    }
    SampleRecord sample;
    const bool category = record.type.substr(0, kCategoryPrefix.size()) == kCategoryPrefix;
    if (category) {
      sample.kind = SampleKind::category;
      auto value = lookUp(kCategoryValues, record.value);
      if (!value) {
        if (const auto number = parseNumber(record.value);
            number && std::trunc(*number) == *number) {
          value = static_cast<std::int64_t>(*number);
        }
      }
      if (!value) {
        note(ExportIssue::unknownCategoryValue, record.value);
        return Frame::skippedRecord;
      }
      sample.value = static_cast<double>(*value);
    } else {
      const auto number = parseNumber(record.value);
      if (!number) {
        note(ExportIssue::nonNumericValue, record.value);
        return Frame::skippedRecord;
      }
      sample.kind = SampleKind::quantity;
      sample.value = *number;
      sample.unit = record.unit;
    }
    if (context_.exportDate && *end > *context_.exportDate) {
      note(ExportIssue::dateAfterExport, record.endDate);
    }
    sample.type = record.type;
    sample.start = *start;
    sample.end = *end;
    sample.sourceName = record.sourceName;
    sample.sourceBundleIdentifier =
        identifierFor(record.sourceName, record.sourceVersion, record.device);
    pending_.push_back(std::move(sample));
    return Frame::record;
  }

  void readMetadata(const XML_Char** attributes) {
    std::string_view key, value;
    for (auto a = attributes; *a != nullptr; a += 2) {
      const std::string_view name(a[0]);
      if (name == "key") {
        key = a[1];
      } else if (name == "value") {
        value = a[1];
      }
    }
    if (key == "HKWasUserEntered") {
      const auto number = parseNumber(value);
      pending_.back().wasUserEntered = number ? *number != 0 : value == "true";
    }
  }

  void readCharacteristics(const XML_Char** attributes) {
    platform::Characteristics characteristics;
    for (auto a = attributes; *a != nullptr; a += 2) {
      const std::string_view name(a[0]);
      const std::string_view value(a[1]);
      if (name == "HKCharacteristicTypeIdentifierDateOfBirth" && !value.empty()) {
        if (const auto day = ExportDate::parseDay(value)) {
          characteristics.dateOfBirth = *day;
        } else {
          note(ExportIssue::unreadableDate, value);
        }
      } else if (name == "HKCharacteristicTypeIdentifierBiologicalSex" && !value.empty()) {
        if (const auto sex = lookUp(kBiologicalSexes, value)) {
          characteristics.biologicalSex = *sex;
        } else {
          note(ExportIssue::unknownCategoryValue, value);
        }
      }
    }
    result_.characteristics = std::move(characteristics);
  }

  // Records come in runs from one source, so the last answer is kept; a map holds the rest.
  const std::string& identifierFor(std::string_view name, std::string_view version,
                                   std::string_view device) {
    if (name == lastName_ && version == lastVersion_ && device == lastDevice_) {
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

  const ExportChunk& chunk_;
  const ChunkContext& context_;
  ChunkResult result_;
  XML_Parser parser_ = nullptr;
  std::uint64_t lineBase_ = 1;
  std::vector<Frame> frames_;
  std::vector<SampleRecord> pending_;  // the records whose element is open, innermost last
  int correlationDepth_ = 0;
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

ChunkResult parseChunk(const ExportChunk& chunk, const ChunkContext& context) {
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
