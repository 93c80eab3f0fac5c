#include "velk/ExportReport.h"

#include <algorithm>

namespace velk::ingest {

namespace {

void addDetail(std::vector<ExportReport::Detail>& details, std::string_view text,
               std::uint64_t count) {
  if (text.empty()) {
    return;
  }
  auto known = std::find_if(details.begin(), details.end(),
                            [text](const ExportReport::Detail& each) { return each.text == text; });
  if (known != details.end()) {
    known->count += count;
  } else if (details.size() < ExportReport::kDetails) {
    details.push_back({std::string(text), count});
  }
}

}  // namespace

void ExportReport::note(ExportIssue issue, std::uint64_t line, std::string_view detail) {
  auto& target = mutableEntry(issue);
  addDetail(target.details, detail, 1);
  ++target.count;
  if (target.firstLines.size() < kFirstLines) {
    target.firstLines.push_back(line);
  }
}

void ExportReport::noteMany(ExportIssue issue, std::uint64_t count) {
  mutableEntry(issue).count += count;
}

void ExportReport::merge(const ExportReport& later, std::uint64_t lineOffset) {
  for (std::size_t i = 0; i < kExportIssueCount; ++i) {
    auto& mine = entries_[i];
    const auto& theirs = later.entries_[i];
    for (const auto& detail : theirs.details) {
      addDetail(mine.details, detail.text, detail.count);
    }
    mine.count += theirs.count;
    for (const auto line : theirs.firstLines) {
      if (mine.firstLines.size() < kFirstLines) {
        mine.firstLines.push_back(line + lineOffset);
      }
    }
  }
  recordsRead += later.recordsRead;
  correlationRecordsSkipped += later.correlationRecordsSkipped;
  unreadCategoryRecordsSkipped += later.unreadCategoryRecordsSkipped;
}

bool ExportReport::hasWarnings() const {
  return std::any_of(entries_.begin(), entries_.end(),
                     [](const Entry& entry) { return entry.count > 0; });
}

std::vector<std::string> ExportReport::warningLines() const {
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < kExportIssueCount; ++i) {
    const auto& entry = entries_[i];
    if (entry.count == 0) {
      continue;
    }
    std::string line =
        std::to_string(entry.count) + " x " + std::string(describe(static_cast<ExportIssue>(i)));
    if (!entry.firstLines.empty()) {
      line += entry.firstLines.size() < entry.count ? " (first at line" : " (at line";
      line += entry.firstLines.size() > 1 ? "s " : " ";
      for (std::size_t k = 0; k < entry.firstLines.size(); ++k) {
        line += (k > 0 ? ", " : "") + std::to_string(entry.firstLines[k]);
      }
      line += ")";
    }
    for (std::size_t k = 0; k < entry.details.size(); ++k) {
      const auto& detail = entry.details[k];
      line += (k == 0 ? ": " : "; ") + detail.text;
      if (entry.details.size() > 1 || detail.count < entry.count) {
        line += " (" + std::to_string(detail.count) + ")";
      }
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

std::string_view describe(ExportIssue issue) {
  switch (issue) {
    case ExportIssue::malformedXml:
      return "malformed XML, elements there skipped";
    case ExportIssue::controlCharacters:
      return "control characters not allowed in XML, replaced by spaces";
    case ExportIssue::missingAttribute:
      return "records without type, startDate or endDate, skipped";
    case ExportIssue::unreadableDate:
      return "unreadable dates, records skipped";
    case ExportIssue::nonNumericValue:
      return "quantity records with a value that is no number, skipped";
    case ExportIssue::unknownCategoryValue:
      return "unknown sleep or characteristic values, skipped";
    case ExportIssue::nestedRecord:
      return "records nested inside records, read as records of their own";
    case ExportIssue::dateAfterExport:
      return "records dated after the export was made (a wrong clock?), read anyway";
    case ExportIssue::truncated:
      return "the file ends before </HealthData> (truncated?)";
    case ExportIssue::impossibleValue:
      return "quantity records with a value no measurement can have (above a billion in the "
             "type's unit), skipped";
    case ExportIssue::endBeforeStart:
      return "records that end before they start, skipped";
    case ExportIssue::repeatedAttribute:
      return "records with an attribute written twice (not well-formed XML), skipped";
    case ExportIssue::otherEncoding:
      return "an encoding other than UTF-8 declared, read as UTF-8: records with other bytes "
             "skipped (convert with iconv and change the declaration)";
  }
  return "unknown issue";
}

}  // namespace velk::ingest
