#include "ExportElements.h"

#include <algorithm>
#include <string>

#include "ingest/ExportDate.h"

namespace velk::ingest {

namespace {

// The value of the first attribute called `name`, or empty.
std::string_view attributeValue(std::span<const RawAttribute> attributes, std::string_view name) {
  for (const auto& attribute : attributes) {
    if (attribute.name == name) {
      return attribute.value;
    }
  }
  return {};
}

// A value at fault with the type it belongs to, for the report: the same fault in two types is
// two things to fix.
std::string valueDetail(std::string_view type, std::string_view value) {
  if (value.empty()) {
    return std::string(type) + " without a value";
  }
  return std::string(type) + " \"" + std::string(value) + "\"";
}

}  // namespace

ElementReader::ElementReader(const ExportChunk& chunk, const ChunkContext& context,
                             ChunkResult& result)
    : chunk_(chunk), result_(result), mapper_(result.batch, *context.sources, context.exportDate) {
  // Apple's record lines are 250 to 450 bytes long.
  result_.batch.records.reserve(chunk.bytes.size() / 300);
}

void ElementReader::beginTree() {
  frames_.clear();
  pending_.clear();
  correlationDepth_ = 0;
}

void ElementReader::start(std::string_view name, std::size_t offset,
                          std::span<const RawAttribute> attributes) {
  auto frame = Frame::other;
  if (name == "Record") {
    frame = startRecord(offset, attributes);
  } else if (name == "MetadataEntry") {
    if (!frames_.empty() && frames_.back() == Frame::record) {
      readMetadata(attributes);
    }
  } else if (name == "Correlation") {
    ++correlationDepth_;
    frame = Frame::correlation;
  } else if (name == "Me" && frames_.empty()) {
    readCharacteristics(offset, attributes);
  }
  frames_.push_back(frame);
}

void ElementReader::end() {
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

void ElementReader::finish() {
  if (const auto controls = mapper_.controlsReplaced(); controls > 0) {
    result_.report.noteMany(ExportIssue::controlCharacters, controls);
  }
}

ElementReader::Frame ElementReader::startRecord(std::size_t offset,
                                                std::span<const RawAttribute> attributes) {
  if (correlationDepth_ > 0) {
    ++result_.report.correlationRecordsSkipped;
    return Frame::correlationRecord;
  }
  if (std::any_of(frames_.begin(), frames_.end(), [](Frame frame) {
        return frame == Frame::record || frame == Frame::skippedRecord;
      })) {
    note(ExportIssue::nestedRecord, offset);
  }
  RecordFields fields;
  for (const auto& attribute : attributes) {
    fields.take(attribute.name, attribute.value);
  }
  const auto mapped = mapper_.map(fields);
  if (mapped.issue) {
    const bool aboutValue = *mapped.issue == ExportIssue::nonNumericValue ||
                            *mapped.issue == ExportIssue::unknownCategoryValue;
    note(*mapped.issue, offset,
         aboutValue ? valueDetail(fields.type, fields.value) : mapped.detail);
  } else if (!mapped.record) {
    ++result_.report.unreadCategoryRecordsSkipped;
  }
  if (!mapped.record) {
    return Frame::skippedRecord;
  }
  pending_.push_back(*mapped.record);
  return Frame::record;
}

void ElementReader::readMetadata(std::span<const RawAttribute> attributes) {
  if (attributeValue(attributes, "key") == "HKWasUserEntered") {
    const auto value = attributeValue(attributes, "value");
    const auto number = readNumber(value);
    pending_.back().wasUserEntered = number ? *number != 0 : value == "true";
  }
}

void ElementReader::readCharacteristics(std::size_t offset,
                                        std::span<const RawAttribute> attributes) {
  platform::Characteristics characteristics;
  for (const auto& [name, value] : attributes) {
    if (name == "HKCharacteristicTypeIdentifierDateOfBirth" && !value.empty()) {
      if (const auto day = ExportDate::parseDay(value)) {
        characteristics.dateOfBirth = *day;
      } else {
        note(ExportIssue::unreadableDate, offset, value);
      }
    } else if (name == "HKCharacteristicTypeIdentifierBiologicalSex" && !value.empty()) {
      if (const auto sex = biologicalSexNamed(value)) {
        characteristics.biologicalSex = *sex;
      } else {
        note(ExportIssue::unknownCategoryValue, offset,
             valueDetail("HKCharacteristicTypeIdentifierBiologicalSex", value));
      }
    }
  }
  result_.characteristics = std::move(characteristics);
}

void ElementReader::note(ExportIssue issue, std::size_t offset, std::string_view detail) {
  // Finding a line costs a count of the line feeds before it: done only for lines kept.
  auto& report = result_.report;
  report.note(issue,
              report.wantsLine(issue) ? chunk_.firstLine + chunk_.lines.feedsBefore(offset) : 0,
              detail);
}

}  // namespace velk::ingest
