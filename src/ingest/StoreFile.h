// Store files: a health store written down as JSON (docs/store-file.md describes the format for
// its users). A store file gives the samples, the characteristics and how the store behaves
// (availability, unknown types, the authorisation answer, per-type errors), and loads into an
// InMemoryHealthDatabase that a Device can hold.
//
// Loading is strict: an unknown key, a value of the wrong type, a date that is not ISO 8601 with
// an offset, a unit that names no unit or a number that is not finite fails the whole file with
// an error whose message names the file, the JSON path ("samples[3].start") and the problem.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/HealthDatabase.h"
#include "platform/InMemoryHealthDatabase.h"
#include "platform/SampleRecord.h"
#include "velk/Result.h"

namespace velk::ingest {

inline constexpr const char* kStoreFileErrorDomain = "velk.ingest.store-file";

enum class StoreFileErrorCode : std::int64_t {
  cannotRead = 1,  ///< the file cannot be opened or read
  notJson = 2,     ///< the text is not JSON
  invalid = 3,     ///< JSON, but not a store file
};

/// Everything a store file says, as plain values.
struct StoreFileContents {
  platform::HealthDatabaseSettings settings;
  platform::Characteristics characteristics;
  std::vector<platform::SampleRecord> samples;
};

class StoreFile {
 public:
  /// Reads store-file text; `fileName` is only used in error messages.
  static Result<StoreFileContents> parse(std::string_view text, const std::string& fileName);

  static Result<StoreFileContents> read(const std::filesystem::path& path);

  /// Reads the file and builds the database it describes.
  static Result<std::shared_ptr<platform::InMemoryHealthDatabase>> load(
      const std::filesystem::path& path);

  static std::shared_ptr<platform::InMemoryHealthDatabase> makeDatabase(
      const StoreFileContents& contents);
};

}  // namespace velk::ingest
