// A health database over an SQLite file written by importExport (ExportImport.h): the samples and
// characteristics of one export, read back a day window at a time without loading the file.
//
// Opening checks that the file is such a database (of this format version) and reads its small
// tables (types, units, sources, characteristics); samples stay on disk. Queries from any number
// of threads are safe: they share one read-only connection under a lock, held only while the
// rows are fetched. Unpacked blocks are kept in a bounded cache, so that the days of a range
// read each block of the file about once. The file is never written; replacing it by a new import
// while it is open is safe too, since the open database keeps reading the file it opened.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/HKUnit.h"
#include "platform/HealthDatabase.h"
#include "platform/InternedString.h"
#include "velk/Error.h"
#include "velk/Result.h"

namespace velk::ingest {

inline constexpr const char* kImportDatabaseErrorDomain = "velk.ingest.database";

enum class DatabaseErrorCode : std::int64_t {
  cannotOpen = 1,     ///< the file is missing or cannot be opened
  notADatabase = 2,   ///< the file is not an import database (or not SQLite at all)
  wrongVersion = 3,   ///< an import database of another format version
  sqliteFailed = 4,   ///< SQLite failed while reading or writing
  cannotReplace = 5,  ///< the new database could not take the place of the old one
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
  std::vector<platform::StoredSample> samples(const std::string& typeIdentifier,
                                              std::optional<Date> start,
                                              std::optional<Date> end) const override;
  platform::Characteristics characteristics() const override;
  platform::SourcePriority sourcePriority() const override;

  /// How many samples the file holds, of all types.
  std::uint64_t sampleCount() const { return sampleCount_; }
  /// What the import wrote about itself: the export it read, when, and its warnings.
  const std::unordered_map<std::string, std::string>& importInfo() const { return info_; }

 private:
  struct Connection;
  struct TypeInfo {
    std::int64_t id = 0;
    double longestSpan = 0;
  };
  struct SourceInfo {
    platform::InternedString bundleIdentifier;
    platform::InternedString name;
  };

  struct Block;

  /// How many bytes of unpacked samples the block cache keeps at most.
  static constexpr std::size_t kBlockCacheBytes = 16u << 20;

  ImportedHealthDatabase() = default;
  Result<bool> load(const std::filesystem::path& path);
  /// The blocks of the type that may hold samples of [start, end], cached ones from the cache.
  std::vector<std::shared_ptr<const Block>> blocksFor(const TypeInfo& type, double start,
                                                      double end) const;
  /// Called with the mutex held.
  void cacheBlock(std::int64_t row, std::shared_ptr<const Block> block) const;

  platform::HealthDatabaseSettings settings_;
  platform::Characteristics characteristics_;
  std::unordered_map<std::string, TypeInfo> types_;
  std::vector<std::optional<platform::HKUnit>> units_;  ///< by unit id; 0 is no unit
  std::vector<SourceInfo> sources_;                     ///< by source id
  std::unordered_map<std::string, std::string> info_;
  std::uint64_t sampleCount_ = 0;

  mutable std::mutex mutex_;  ///< guards the connection, its statements and the block cache
  std::unique_ptr<Connection> connection_;
  /// Unpacked blocks by row: a range of days reads each block on two or three days, and the
  /// rare body measurements of every earlier day on each.
  mutable std::unordered_map<std::int64_t, std::shared_ptr<const Block>> cache_;
  mutable std::size_t cachedBytes_ = 0;
};

}  // namespace velk::ingest
