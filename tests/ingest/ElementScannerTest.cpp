// The record scanner against pugixml on the seeds of its fuzzer (the bodies of the real exports,
// the known kinds of damage, and what the fuzzer found): read both ways, every part gives the same
// records, tables, characteristics and warnings; fuzz_export_scanner makes the same comparison on
// any input. And the byte-level helpers of the scanner and the reading thread: the vector masks and
// searches against their byte-by-byte references, and the line index with its cleaning.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <tuple>

#include "ingest/ByteMasks.h"
#include "ingest/ExportChunkParser.h"
#include "ingest/LineIndex.h"
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

// The masks the processor computes against the byte-by-byte reference, for every byte value at
// every position of a group of 64.
TEST(ByteMasksTest, AgreeWithTheByteByByteReading) {
  std::mt19937 random(11);
  for (int round = 0; round < 2000; ++round) {
    std::string bytes(64, 'x');
    for (auto& byte : bytes) {
      // Half the bytes among the controls and their neighbours, where the comparisons turn.
      byte = static_cast<char>(random() % 2 == 0 ? random() % 0x22 : random() % 256);
    }
    const auto fast = controlMasks(bytes.data());
    const auto reference = bytewise::controlMasks(bytes.data());
    ASSERT_EQ(fast.lineFeeds, reference.lineFeeds);
    ASSERT_EQ(fast.forbidden, reference.forbidden);
  }
}

// The ends of names and values the processor finds against the byte-by-byte reference, from
// every start to every limit of random text made of the bytes where the answers turn.
TEST(ByteMasksTest, FindTheEndsOfNamesAndValuesAsTheByteByByteReading) {
  std::mt19937 random(12);
  const std::string turns = "\"&<\0azAZ09_.:-=@[`{/ \x80\xff";
  for (int round = 0; round < 300; ++round) {
    std::string bytes(48, 'x');
    for (auto& byte : bytes) {
      byte = random() % 3 == 0 ? turns[random() % turns.size()] : static_cast<char>(random() % 128);
    }
    for (std::size_t at = 0; at <= bytes.size(); ++at) {
      for (std::size_t limit = at; limit <= bytes.size(); ++limit) {
        ASSERT_EQ(findValueStop(bytes.data(), at, limit),
                  bytewise::findValueStop(bytes.data(), at, limit));
        ASSERT_EQ(findNameEnd(bytes.data(), at, limit),
                  bytewise::findNameEnd(bytes.data(), at, limit));
      }
    }
  }
}

// Texts that span several counting blocks, with lines of every length from empty to longer than
// a block, indexed in reads of uneven sizes and cut short, against a plain count at every offset.
TEST(LineIndexTest, CountsTheLineFeedsBeforeEveryOffset) {
  std::mt19937 random(7);
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{63}, std::size_t{64}, std::size_t{20000}}) {
    for (const unsigned feedsIn : {2u, 50u, 9000u}) {
      std::string text(size, 'x');
      for (auto& c : text) {
        c = random() % feedsIn == 0 ? '\n' : 'x';
      }
      LineIndex index;
      for (std::size_t from = 0; from < size;) {
        const auto to = std::min(size, from + 1 + random() % 300);
        EXPECT_EQ(index.extendAndClean(text.data(), from, to), 0u);
        from = to;
      }
      const auto kept = size - size / 3;
      index.truncate(kept);
      EXPECT_EQ(index.total(),
                static_cast<std::uint64_t>(std::count(text.data(), text.data() + kept, '\n')));
      std::uint64_t expected = 0;
      for (std::size_t offset = 0; offset <= kept + 100; ++offset) {
        ASSERT_EQ(index.feedsBefore(offset), expected) << "size " << size << ", offset " << offset;
        expected += offset < kept && text[offset] == '\n' ? 1u : 0u;
      }
    }
  }
}

TEST(LineIndexTest, ReplacesForbiddenControlsWhereItReads) {
  std::string text(200, 'x');
  text[5] = '\v';
  text[70] = '\x01';
  text[71] = '\n';
  text[150] = '\x1f';
  text[199] = '\t';
  LineIndex index;
  EXPECT_EQ(index.extendAndClean(text.data(), 0, 100), 2u);
  EXPECT_EQ(text[5], ' ');
  EXPECT_EQ(text.substr(100, 50), std::string(50, 'x'));  // not read yet, nor written
  EXPECT_EQ(text[150], '\x1f');
  EXPECT_EQ(index.extendAndClean(text.data(), 100, 200), 1u);
  EXPECT_EQ(text.find_first_of("\v\x01\x1f"), std::string::npos);
  EXPECT_EQ(text[71], '\n');
  EXPECT_EQ(text[199], '\t');
  EXPECT_EQ(index.total(), 1u);
}

}  // namespace
}  // namespace velk::ingest
