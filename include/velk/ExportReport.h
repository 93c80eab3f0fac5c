// What went wrong, short of failing, while reading an export: per kind of damage a count, the
// line numbers of its first occurrences and the first parser message. Readers merge the
// reports of the parts of a file in file order, so the first lines stay the first in the file.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velk::ingest {

enum class ExportIssue : std::uint8_t {
  malformedXml,          ///< XML that cannot be parsed; the elements there are lost
  controlCharacters,     ///< characters not allowed in XML, replaced by spaces
  missingAttribute,      ///< a record without type, startDate or endDate
  unreadableDate,        ///< a date in none of the export forms
  nonNumericValue,       ///< a quantity record whose value is no number
  unknownCategoryValue,  ///< a category value or characteristic with an unknown name
  nestedRecord,          ///< a record inside another record (both are read)
  dateAfterExport,       ///< a record that ends after the export was made (read anyway)
  truncated,             ///< the file ends before the export's closing tag
  impossibleValue,       ///< a quantity no measurement can have (kLargestQuantity), skipped
  endBeforeStart,        ///< a record that ends before it starts, skipped
  repeatedAttribute,     ///< a record with an attribute written twice, skipped
  otherEncoding,         ///< the file declares an encoding other than UTF-8; read as UTF-8
};

inline constexpr std::size_t kExportIssueCount = 13;

class ExportReport {
 public:
  /// How many first occurrences keep their line number.
  static constexpr std::size_t kFirstLines = 5;

  /// How many distinct details (values at fault, parser messages) keep their count.
  static constexpr std::size_t kDetails = 5;

  struct Detail {
    std::string text;  ///< e.g. `HKQuantityTypeIdentifierHeartRate "abc"`, a parser message
    std::uint64_t count = 0;
  };

  struct Entry {
    std::uint64_t count = 0;
    std::vector<std::uint64_t> firstLines;
    std::vector<Detail> details;  ///< the first distinct details, in file order
  };

  /// True while the next occurrence of `issue` would still keep its line: callers use it to
  /// skip the cost of finding a line number that would be dropped.
  bool wantsLine(ExportIssue issue) const { return entry(issue).firstLines.size() < kFirstLines; }
  /// Counts one occurrence at `line` (kept while wantsLine) with its `detail`, if any.
  void note(ExportIssue issue, std::uint64_t line, std::string_view detail = {});
  /// Adds `count` occurrences at once, e.g. replaced characters counted in bulk.
  void noteMany(ExportIssue issue, std::uint64_t count);

  /// Appends a later part's report, whose line numbers count `lineOffset` lines short.
  void merge(const ExportReport& later, std::uint64_t lineOffset = 0);

  const Entry& entry(ExportIssue issue) const { return entries_[static_cast<std::size_t>(issue)]; }
  std::uint64_t count(ExportIssue issue) const { return entry(issue).count; }
  bool hasWarnings() const;

  /// One readable line per kind of damage found, for stderr: "12 x unknown category values,
  /// skipped (first at lines 4, 9): HKCategoryTypeIdentifierSleepAnalysis \"Napping\" (12)".
  std::vector<std::string> warningLines() const;

  std::uint64_t recordsRead = 0;
  /// Records inside Correlation elements, which exports also write at top level.
  std::uint64_t correlationRecordsSkipped = 0;
  /// Category records of types that no summary reads whose value is missing or unknown: left
  /// out without a warning, since nothing the library reports is lost.
  std::uint64_t unreadCategoryRecordsSkipped = 0;

 private:
  Entry& mutableEntry(ExportIssue issue) { return entries_[static_cast<std::size_t>(issue)]; }
  std::array<Entry, kExportIssueCount> entries_{};
};

std::string_view describe(ExportIssue issue);

}  // namespace velk::ingest
