// How an import database lays out its samples. Shared by the importer that writes the file and
// the database that reads it.
//
// Samples are not stored one row each: an export holds millions of them, and a row each would
// make the import cost more than reading the XML. Instead the samples of one type whose start
// falls on one UTC day are packed into blocks, one row per block, with the block's earliest start
// and latest end beside it. A day-window query reads the few blocks of its type that can overlap
// the window through the index on (type_id, is_long, first_start): a block of day D starts no
// earlier than D and spans at most `types.longest_span` seconds, so only blocks with
// first_start in [window start - longest_span, window end) are read. Samples longer than a day
// (rare, and sometimes wrong by years) go into blocks marked is_long, read separately, so that
// one of them cannot widen every query's scan.
//
// A packed sample is kSampleBytes bytes, little-endian as written on this machine:
//   start f64 | end f64 | value f64 | ordinal u64 | source u32 | unit u16 | kind u8 | entered u8
// `ordinal` is the sample's position among all samples of the export, so that answers keep the
// export's order; `entered` is 0 for no HKWasUserEntered key, 1 for false, 2 for true; `unit` 0
// means none (category samples).
//
// Each block row carries a CRC-32 of its own columns and samples (blockChecksum), so that a
// reader finds a block whose bytes were changed after the import, by a failing disk or by hand.
// Format 2 added it; a database of format 1 is refused with a request to import again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace velk::ingest::layout {

inline constexpr std::string_view kFormatName = "velk-health-import";
inline constexpr std::int64_t kFormatVersion = 2;

/// A sample that lasts longer than this goes into a long block.
inline constexpr double kLongSampleSeconds = 86400;

inline constexpr std::string_view kSchema = R"sql(
CREATE TABLE meta(key TEXT PRIMARY KEY, value);
CREATE TABLE types(id INTEGER PRIMARY KEY, identifier TEXT NOT NULL UNIQUE,
                   longest_span REAL NOT NULL DEFAULT 0);
CREATE TABLE units(id INTEGER PRIMARY KEY, text TEXT NOT NULL UNIQUE);
CREATE TABLE sources(id INTEGER PRIMARY KEY, bundle_identifier TEXT NOT NULL, name TEXT NOT NULL,
                     UNIQUE(bundle_identifier, name));
CREATE TABLE blocks(type_id INTEGER NOT NULL, is_long INTEGER NOT NULL, first_start REAL NOT NULL,
                    last_end REAL NOT NULL, sample_count INTEGER NOT NULL, samples BLOB NOT NULL,
                    checksum INTEGER NOT NULL);
CREATE TABLE characteristics(birth_year INTEGER, birth_month INTEGER, birth_day INTEGER,
                             biological_sex INTEGER NOT NULL);
)sql";

/// Built after loading: one sort instead of an index kept up to date row by row.
inline constexpr std::string_view kIndex =
    "CREATE INDEX blocks_by_window ON blocks(type_id, is_long, first_start);";

inline constexpr std::size_t kSampleBytes = 40;

struct PackedSample {
  double start = 0;
  double end = 0;
  double value = 0;
  std::uint64_t ordinal = 0;
  std::uint32_t source = 0;
  std::uint16_t unit = 0;
  std::uint8_t kind = 0;
  std::uint8_t entered = 0;
};

inline void pack(const PackedSample& sample, unsigned char* out) {
  std::memcpy(out, &sample.start, 8);
  std::memcpy(out + 8, &sample.end, 8);
  std::memcpy(out + 16, &sample.value, 8);
  std::memcpy(out + 24, &sample.ordinal, 8);
  std::memcpy(out + 32, &sample.source, 4);
  std::memcpy(out + 36, &sample.unit, 2);
  out[38] = sample.kind;
  out[39] = sample.entered;
}

inline PackedSample unpack(const unsigned char* in) {
  PackedSample sample;
  std::memcpy(&sample.start, in, 8);
  std::memcpy(&sample.end, in + 8, 8);
  std::memcpy(&sample.value, in + 16, 8);
  std::memcpy(&sample.ordinal, in + 24, 8);
  std::memcpy(&sample.source, in + 32, 4);
  std::memcpy(&sample.unit, in + 36, 2);
  sample.kind = in[38];
  sample.entered = in[39];
  return sample;
}

/// A block row's columns besides its samples.
struct BlockHeader {
  std::int64_t typeId = 0;
  bool isLong = false;
  double firstStart = 0;
  double lastEnd = 0;
  std::int64_t sampleCount = 0;
};

/// The CRC-32 of a block row: its header's columns, then its `size` bytes of packed samples.
std::uint32_t blockChecksum(const BlockHeader& header, const unsigned char* samples,
                            std::size_t size);

inline std::uint8_t enteredCode(std::optional<bool> wasUserEntered) {
  return wasUserEntered ? (*wasUserEntered ? 2 : 1) : 0;
}

inline std::optional<bool> enteredValue(std::uint8_t code) {
  if (code == 0) {
    return std::nullopt;
  }
  return code == 2;
}

}  // namespace velk::ingest::layout
