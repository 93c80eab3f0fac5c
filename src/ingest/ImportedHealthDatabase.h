// A health database over an SQLite file written by importExport (ExportImport.h): the samples and
// characteristics of one export, read back a day window at a time without loading the file.
//
// Opening checks that the file is such a database (of this format version) and reads its small
// tables (types, units, sources, characteristics); samples stay on disk. Every block a query reads
// is checked against its checksum, and every sample in it against what an import writes (a known
// source, a unit of its type's dimension, finite times, a value a measurement can have): a damaged
// file fails the query with a `damaged` error naming the file, never a part of the answer. Queries
// from any number of threads are safe: they share one read-only connection under a lock, held only
// while the rows are fetched. Unpacked blocks, once checked, are kept in a bounded cache, so that
// the days of a range read and check each block of the file about once. The file is never
// written; replacing it by a new import while it is open is safe too, since the open database
// keeps reading the file it opened.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/HKUnit.h"
#include "platform/HealthDatabase.h"
#include "platform/InternedString.h"
#include "velk/Error.h"
#include "velk/Result.h"

struct sqlite3;

namespace velk::ingest {

namespace layout {
struct PackedSample;
}
namespace sqlite {
class Statement;
}

inline constexpr const char* kImportDatabaseErrorDomain = "velk.ingest.database";

enum class DatabaseErrorCode : std::int64_t {
  cannotOpen = 1,     ///< the file is missing or cannot be opened
  notADatabase = 2,   ///< the file is not an import database (or not SQLite at all)
  wrongVersion = 3,   ///< an import database of another format version
  sqliteFailed = 4,   ///< SQLite failed while reading or writing
  cannotReplace = 5,  ///< the new database could not take the place of the old one
  damaged = 6,        ///< the file's content was changed after the import (checksum, values)
};

inline Error databaseError(DatabaseErrorCode code, std::string message) {
  return Error(kImportDatabaseErrorDomain, static_cast<std::int64_t>(code), std::move(message));
}

class ImportedHealthDatabase final : public platform::HealthDatabase {
 public:
  /// Opens the database at `path`. `settings` say how the store behaves beyond its samples
  /// (availability, errors, the order of trusted sources); the file supplies the rest.
  static Result<std::shared_ptr<ImportedHealthDatabase>> open(
      const std::filesystem::path& path, platform::HealthDatabaseSettings settings = {});

  ~ImportedHealthDatabase() override;

  bool isHealthDataAvailable() const override;
  bool knowsType(const std::string& identifier) const override;
  platform::AuthorizationAnswer authorizationAnswer() const override;
  std::optional<Error> queryError(const std::string& typeIdentifier) const override;
  bool answersWithoutSamples(const std::string& typeIdentifier) const override;
  Result<std::vector<platform::StoredSample>> samples(const std::string& typeIdentifier,
                                                      std::optional<Date> start,
                                                      std::optional<Date> end) const override;
  platform::Characteristics characteristics() const override;
  std::vector<std::string> sampleTypes() const override;
  std::vector<std::string> sourceBundleIdentifiers() const override;
  platform::SourcePriority sourcePriority() const override;
  std::optional<Error> firstFailedRead() const override;

  /// How many samples the file holds, of all types.
  std::uint64_t sampleCount() const { return sampleCount_; }
  /// What the import wrote about itself: the export it read, when, and its warnings.
  const std::unordered_map<std::string, std::string>& importInfo() const { return info_; }

 private:
  struct Connection;
  struct TypeInfo {
    std::string identifier;
    std::int64_t id = 0;
    double longestSpan = 0;
    std::optional<platform::HKUnit> canonical;  ///< the unit its quantities convert to, if any
  };
  struct SourceInfo {
    platform::InternedString bundleIdentifier;
    platform::InternedString name;
  };

  struct Block;
  using SharedBlock = std::shared_ptr<const Block>;

  /// How many bytes of unpacked samples the block cache keeps at most.
  static constexpr std::size_t kBlockCacheBytes = 16u << 20;

  explicit ImportedHealthDatabase(std::filesystem::path path);
  Status load();
  Status readMeta(sqlite3* handle);
  Status readTypes(sqlite3* handle);
  Status readUnits(sqlite3* handle);
  Status readSources(sqlite3* handle);
  Status readCharacteristics(sqlite3* handle);
  Status prepareBlockQueries(Connection& connection);
  /// The blocks of `type` that may hold samples of [start, end], each checked, cached ones from
  /// the cache. Called without the mutex held.
  Result<std::vector<SharedBlock>> blocksFor(const TypeInfo& type, double start, double end) const;
  /// Add the blocks of `type` that start in the window, and its long blocks that reach into it.
  /// Called with the mutex held.
  Status addWindowBlocks(const TypeInfo& type, double start, double end,
                         std::vector<SharedBlock>& blocks) const;
  Status addLongBlocks(const TypeInfo& type, double start, double end,
                       std::vector<SharedBlock>& blocks) const;
  /// The block in the current row of `row` (first_start, last_end, sample_count, checksum,
  /// samples), unpacked and checked against its checksum, its size and what an import writes.
  Result<SharedBlock> unpackBlock(const TypeInfo& type, bool isLong, sqlite::Statement& row) const;
  /// Called with the mutex held.
  void cacheBlock(std::int64_t row, SharedBlock block) const;
  /// Why the sample cannot have been written by an import; empty when it can.
  std::string flawOf(const layout::PackedSample& sample,
                     const std::optional<platform::HKUnit>& canonical) const;
  /// An error of `code` naming the file; `why` says what is wrong and what to do.
  Error errorAbout(DatabaseErrorCode code, const std::string& why) const;
  Error damage(const std::string& what) const;

  std::filesystem::path path_;
  platform::HealthDatabaseSettings settings_;
  platform::Characteristics characteristics_;
  std::unordered_map<std::string, TypeInfo> types_;
  std::vector<std::optional<platform::HKUnit>> units_;  ///< by unit id; 0 is no unit
  std::vector<SourceInfo> sources_;                     ///< by source id
  std::unordered_map<std::string, std::string> info_;
  std::uint64_t sampleCount_ = 0;

  /// Guards the connection, its statements, the block cache and firstFailure_.
  mutable std::mutex mutex_;
  mutable std::optional<Error> firstFailure_;
  std::unique_ptr<Connection> connection_;
  /// Unpacked blocks by row: a range of days reads each block on two or three days, and the
  /// rare body measurements of every earlier day on each.
  mutable std::unordered_map<std::int64_t, SharedBlock> cache_;
  mutable std::size_t cachedBytes_ = 0;
};

}  // namespace velk::ingest
