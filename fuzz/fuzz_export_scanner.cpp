// The record scanner against pugixml: the same part read both ways must give the same records,
// tables, characteristics and report (counts, lines and messages of every warning, and so the
// same recoveries from damage). The first byte picks the indent of top-level lines and whether
// the export has a date; the rest is the part.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <string_view>

#include "ingest/ExportChunkParser.h"

namespace {

using velk::ingest::ChunkResult;
using velk::ingest::ChunkSyntax;
using velk::ingest::ExportIssue;

ChunkResult parse(std::string_view text, const velk::ingest::ChunkContext& context,
                  ChunkSyntax syntax) {
  velk::ingest::ExportChunk chunk;
  chunk.bytes.assign(text);
  return velk::ingest::parseChunk(chunk, context, syntax);
}

template <class Alternative, class Variant>
std::string describeVariant(const Variant& value) {
  const auto* plain = std::get_if<Alternative>(&value);
  return plain == nullptr ? std::string("error") : std::to_string(*plain);
}

// Everything a result holds, a line each, numbers exactly.
std::string describe(const ChunkResult& result) {
  std::ostringstream out;
  out << std::hexfloat;
  for (const auto& type : result.batch.types)
    out << "type " << type << '\n';
  for (const auto& unit : result.batch.units)
    out << "unit " << unit << '\n';
  for (const auto& source : result.batch.sources) {
    out << "source " << source.bundleIdentifier << " | " << source.name << '\n';
  }
  for (const auto& r : result.batch.records) {
    out << "record " << r.type << ' ' << r.unit << ' ' << r.source << ' '
        << static_cast<int>(r.kind) << ' ' << r.value << ' '
        << r.start.timeIntervalSinceReferenceDate() << ' ' << r.end.timeIntervalSinceReferenceDate()
        << ' ' << (r.wasUserEntered ? (*r.wasUserEntered ? "entered" : "measured") : "-") << '\n';
  }
  if (result.characteristics) {
    const auto* birth =
        std::get_if<velk::platform::DateComponents>(&result.characteristics->dateOfBirth);
    out << "me " << (birth != nullptr ? birth->year.value_or(-1) : -2) << ' '
        << describeVariant<std::int64_t>(result.characteristics->biologicalSex) << '\n';
  }
  const auto& report = result.report;
  out << "read " << report.recordsRead << " skipped " << report.correlationRecordsSkipped
      << " unread " << report.unreadCategoryRecordsSkipped << '\n';
  for (std::size_t i = 0; i < velk::ingest::kExportIssueCount; ++i) {
    const auto& entry = report.entry(static_cast<ExportIssue>(i));
    out << "issue " << i << " x" << entry.count << " at";
    for (const auto line : entry.firstLines)
      out << ' ' << line;
    out << ':';
    for (const auto& detail : entry.details)
      out << ' ' << detail.text << " x" << detail.count << ';';
    out << '\n';
  }
  return out.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) {
    return 0;
  }
  static const std::string_view kIndents[] = {" ", "", "  ", "\t"};
  static const velk::ingest::SourceIdentifierRule kSources;
  velk::ingest::ChunkContext context;
  context.sources = &kSources;
  context.indent = kIndents[data[0] & 3];
  if ((data[0] & 4) != 0) {
    context.exportDate = velk::Date::fromUnixSeconds(1.7e9);
  }
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  const auto scanned = describe(parse(text, context, ChunkSyntax::scanned));
  const auto reference = describe(parse(text, context, ChunkSyntax::pugixmlOnly));
  if (scanned != reference) {
    std::fprintf(stderr, "the scanner read:\n%s\npugixml read:\n%s\n", scanned.c_str(),
                 reference.c_str());
    __builtin_trap();
  }
  return 0;
}
