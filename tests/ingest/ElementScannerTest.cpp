// The record scanner against pugixml on the seeds of its fuzzer (the bodies of the real
// exports, the known kinds of damage, and what the fuzzer found): read both ways, every part
// gives the same records, tables, characteristics and warnings. fuzz_export_scanner makes the
// same comparison on any input; this runs the seeds in every test run.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>

#include "ingest/ExportChunkParser.h"
#include "support/TempDir.h"

namespace velk::ingest {
namespace {

ChunkResult parse(std::string_view text, const ChunkContext& context, ChunkSyntax syntax) {
  ExportChunk chunk;
  chunk.bytes.assign(text);
  return parseChunk(chunk, context, syntax);
}

auto recordKey(const ExportRecord& r) {
  return std::tuple(r.type, r.unit, r.source, r.kind, r.value, r.start, r.end, r.wasUserEntered);
}

void expectSame(const ChunkResult& scanned, const ChunkResult& reference, const std::string& name) {
  SCOPED_TRACE(name);
  EXPECT_EQ(scanned.batch.types, reference.batch.types);
  EXPECT_EQ(scanned.batch.units, reference.batch.units);
  ASSERT_EQ(scanned.batch.sources.size(), reference.batch.sources.size());
  for (std::size_t i = 0; i < scanned.batch.sources.size(); ++i) {
    EXPECT_EQ(scanned.batch.sources[i].name, reference.batch.sources[i].name);
    EXPECT_EQ(scanned.batch.sources[i].bundleIdentifier,
              reference.batch.sources[i].bundleIdentifier);
  }
  ASSERT_EQ(scanned.batch.records.size(), reference.batch.records.size());
  for (std::size_t i = 0; i < scanned.batch.records.size(); ++i) {
    ASSERT_EQ(recordKey(scanned.batch.records[i]), recordKey(reference.batch.records[i])) << i;
  }
  ASSERT_EQ(scanned.characteristics.has_value(), reference.characteristics.has_value());
  if (scanned.characteristics) {
    EXPECT_EQ(scanned.characteristics->dateOfBirth.index(),
              reference.characteristics->dateOfBirth.index());
    EXPECT_EQ(std::get<std::int64_t>(scanned.characteristics->biologicalSex),
              std::get<std::int64_t>(reference.characteristics->biologicalSex));
  }
  EXPECT_EQ(scanned.report.warningLines(), reference.report.warningLines());
  EXPECT_EQ(scanned.report.recordsRead, reference.report.recordsRead);
  EXPECT_EQ(scanned.report.correlationRecordsSkipped, reference.report.correlationRecordsSkipped);
}

TEST(ElementScannerTest, ReadsWhatPugixmlReadsOnTheSeedsOfItsFuzzer) {
  const SourceIdentifierRule sources;
  int seeds = 0;
  for (const auto& entry :
       std::filesystem::directory_iterator(testing::sourcePath("fuzz/corpus/export_scanner"))) {
    std::ifstream file(entry.path(), std::ios::binary);
    std::stringstream bytes;
    bytes << file.rdbuf();
    const auto seed = bytes.str();
    ASSERT_FALSE(seed.empty());
    // The fuzzer's first byte: the indent of top-level lines, and whether the export has a date.
    ChunkContext context;
    context.sources = &sources;
    context.indent = std::string(std::array<std::string_view, 4>{" ", "", "  ", "\t"}[seed[0] & 3]);
    if ((seed[0] & 4) != 0) {
      context.exportDate = Date::fromUnixSeconds(1.7e9);
    }
    const auto text = std::string_view(seed).substr(1);
    expectSame(parse(text, context, ChunkSyntax::scanned),
               parse(text, context, ChunkSyntax::pugixmlOnly), entry.path().filename().string());
    ++seeds;
  }
  EXPECT_GE(seeds, 5);
}

}  // namespace
}  // namespace velk::ingest
