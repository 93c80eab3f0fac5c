#include "ingest/ImportedHealthDatabase.h"

#include <algorithm>
#include <limits>

#include "ImportLayout.h"
#include "Sqlite.h"
#include "platform/HKObjectType.h"

namespace velk::ingest {

struct ImportedHealthDatabase::Connection {
  sqlite::Connection connection;
  sqlite::Statement windowRows;  ///< the rows of the blocks of a type that start inside a range
  sqlite::Statement blockAtRow;  ///< a block's latest end and samples, by row
  sqlite::Statement longBlocks;  ///< the long blocks of a type that reach a moment
};

// A block as read from the file, unpacked.
struct ImportedHealthDatabase::Block {
  double lastEnd = 0;
  std::vector<layout::PackedSample> samples;
};

namespace {

using Opened = Result<std::shared_ptr<ImportedHealthDatabase>>;

// SQLite's answer for a file that is not a database of its own (e.g. a text file).
bool isForeignFile(int code) {
  return code == SQLITE_NOTADB || code == SQLITE_CORRUPT;
}

}  // namespace

Opened ImportedHealthDatabase::open(const std::filesystem::path& path,
                                    platform::HealthDatabaseSettings settings) {
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(path, ignored)) {
    return Opened::failure(
        databaseError(DatabaseErrorCode::cannotOpen, path.string() + ": no such database file"));
  }
  std::shared_ptr<ImportedHealthDatabase> database(new ImportedHealthDatabase());
  database->settings_ = std::move(settings);
  if (auto loaded = database->load(path); loaded.isFailure()) {
    return Opened::failure(loaded.error());
  }
  return Opened::success(std::move(database));
}

ImportedHealthDatabase::~ImportedHealthDatabase() = default;

Result<bool> ImportedHealthDatabase::load(const std::filesystem::path& path) {
  const auto failure = [&path](DatabaseErrorCode code, const std::string& why) {
    return Result<bool>::failure(databaseError(code, path.string() + ": " + why));
  };
  auto opened = sqlite::Connection::open(path, sqlite::Connection::Mode::readOnly);
  if (opened.isFailure()) {
    return Result<bool>::failure(opened.error());
  }
  auto connection = std::make_unique<Connection>();
  connection->connection = std::move(opened).value();
  sqlite3* handle = connection->connection.get();
  const std::string notOurs = "not a health database made by an import";

  // The format marker first: anything else in the file is read only once it is known to be ours.
  {
    sqlite::Statement meta(handle, "SELECT key, value FROM meta");
    if (!meta.prepared()) {
      const int code = sqlite3_errcode(handle);
      return failure(DatabaseErrorCode::notADatabase,
                     notOurs + (isForeignFile(code) ? " (not an SQLite database)" : ""));
    }
    int status;
    while ((status = meta.step()) == SQLITE_ROW) {
      info_[meta.columnText(0)] = meta.columnText(1);
    }
    if (status != SQLITE_DONE) {
      return failure(DatabaseErrorCode::notADatabase,
                     notOurs + ": " + connection->connection.lastMessage());
    }
  }
  if (info_["format"] != layout::kFormatName) {
    return failure(DatabaseErrorCode::notADatabase, notOurs);
  }
  if (info_["version"] != std::to_string(layout::kFormatVersion)) {
    return failure(DatabaseErrorCode::wrongVersion,
                   "made by another version of the import (format " + info_["version"] +
                       ", this one reads " + std::to_string(layout::kFormatVersion) +
                       "); import the export again");
  }
  const auto damaged = [&] {
    return failure(DatabaseErrorCode::notADatabase,
                   "damaged import database: " + connection->connection.lastMessage());
  };

  sqlite::Statement types(handle, "SELECT id, identifier, longest_span FROM types");
  if (!types.prepared()) {
    return damaged();
  }
  while (types.step() == SQLITE_ROW) {
    types_[types.columnText(1)] = TypeInfo{types.columnInt(0), types.columnDouble(2)};
  }

  sqlite::Statement units(handle, "SELECT id, text FROM units ORDER BY id");
  if (!units.prepared()) {
    return damaged();
  }
  units_.assign(1, std::nullopt);
  while (units.step() == SQLITE_ROW) {
    const auto id = units.columnInt(0);
    if (id <= 0 || id > 0xFFFF) {
      return damaged();
    }
    units_.resize(std::max(units_.size(), static_cast<std::size_t>(id) + 1));
    units_[static_cast<std::size_t>(id)] = platform::HKUnit::unitFromString(units.columnText(1));
  }

  sqlite::Statement sources(handle, "SELECT id, bundle_identifier, name FROM sources ORDER BY id");
  if (!sources.prepared()) {
    return damaged();
  }
  while (sources.step() == SQLITE_ROW) {
    const auto id = sources.columnInt(0);
    if (id < 0 || id > std::numeric_limits<std::uint32_t>::max()) {
      return damaged();
    }
    sources_.resize(std::max(sources_.size(), static_cast<std::size_t>(id) + 1));
    sources_[static_cast<std::size_t>(id)] =
        SourceInfo{platform::InternedString(sources.columnText(1)),
                   platform::InternedString(sources.columnText(2))};
  }

  sqlite::Statement traits(handle,
                           "SELECT birth_year, birth_month, birth_day, biological_sex "
                           "FROM characteristics LIMIT 1");
  if (!traits.prepared()) {
    return damaged();
  }
  if (traits.step() == SQLITE_ROW) {
    platform::DateComponents birth;
    if (!traits.columnIsNull(0)) {
      birth.year = traits.columnInt(0);
    }
    if (!traits.columnIsNull(1)) {
      birth.month = traits.columnInt(1);
    }
    if (!traits.columnIsNull(2)) {
      birth.day = traits.columnInt(2);
    }
    characteristics_.dateOfBirth = birth;
    characteristics_.biologicalSex = traits.columnInt(3);
  }

  // The rows of a window come from the index alone; the blocks themselves are read only when
  // they are not cached already.
  connection->windowRows = sqlite::Statement(
      handle,
      "SELECT rowid FROM blocks WHERE type_id = ?1 AND is_long = 0 AND first_start >= ?2 "
      "AND first_start < ?3");
  connection->blockAtRow =
      sqlite::Statement(handle, "SELECT last_end, samples FROM blocks WHERE rowid = ?1");
  connection->longBlocks = sqlite::Statement(
      handle,
      "SELECT last_end, samples FROM blocks WHERE type_id = ?1 AND is_long = 1 AND "
      "first_start < ?2 AND last_end >= ?3");
  if (!connection->windowRows.prepared() || !connection->blockAtRow.prepared() ||
      !connection->longBlocks.prepared()) {
    return damaged();
  }
  // Nothing ever writes this file in place (an import replaces it whole), so the connection
  // keeps its shared lock from the first read on instead of taking and dropping it, and checking
  // for a hot journal and a changed file, around every query.
  if (auto kept = connection->connection.execute("PRAGMA locking_mode = EXCLUSIVE");
      kept.isFailure()) {
    return Result<bool>::failure(kept.error());
  }
  const auto count = info_.find("samples");
  sampleCount_ = count != info_.end() ? std::strtoull(count->second.c_str(), nullptr, 10) : 0;
  connection_ = std::move(connection);
  return Result<bool>::success(true);
}

bool ImportedHealthDatabase::isHealthDataAvailable() const {
  return settings_.healthDataAvailable;
}

bool ImportedHealthDatabase::knowsType(const std::string& identifier) const {
  if (settings_.unknownTypes.contains(identifier)) {
    return false;
  }
  const auto& platform = platform::HKObjectType::platformIdentifiers();
  return types_.contains(identifier) ||
         std::find(platform.begin(), platform.end(), identifier) != platform.end();
}

platform::AuthorizationAnswer ImportedHealthDatabase::authorizationAnswer() const {
  return settings_.authorization;
}

std::optional<Error> ImportedHealthDatabase::queryError(const std::string& typeIdentifier) const {
  if (const auto found = settings_.queryErrors.find(typeIdentifier);
      found != settings_.queryErrors.end()) {
    return found->second;
  }
  return std::nullopt;
}

bool ImportedHealthDatabase::answersWithoutSamples(const std::string& typeIdentifier) const {
  return settings_.typesAnsweringWithoutSamples.contains(typeIdentifier);
}

platform::Characteristics ImportedHealthDatabase::characteristics() const {
  return characteristics_;
}

platform::SourcePriority ImportedHealthDatabase::sourcePriority() const {
  return platform::SourcePriority(settings_.sourcePriority);
}

namespace {

// The samples of a block's bytes; a last partial sample (a damaged file) is left out.
std::vector<layout::PackedSample> unpackBlock(std::string_view bytes) {
  std::vector<layout::PackedSample> samples;
  samples.reserve(bytes.size() / layout::kSampleBytes);
  const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  for (std::size_t at = 0; at + layout::kSampleBytes <= bytes.size(); at += layout::kSampleBytes) {
    samples.push_back(layout::unpack(data + at));
  }
  return samples;
}

}  // namespace

std::vector<std::shared_ptr<const ImportedHealthDatabase::Block>> ImportedHealthDatabase::blocksFor(
    const TypeInfo& type, double start, double end) const {
  std::vector<std::shared_ptr<const Block>> blocks;
  const std::lock_guard lock(mutex_);
  sqlite::Statement& rows = connection_->windowRows;
  rows.bind(1, type.id);
  rows.bind(2, start - type.longestSpan);
  rows.bind(3, end);
  std::vector<std::int64_t> missing;
  while (rows.step() == SQLITE_ROW) {
    const std::int64_t row = rows.columnInt(0);
    if (const auto cached = cache_.find(row); cached != cache_.end()) {
      blocks.push_back(cached->second);
    } else {
      missing.push_back(row);
    }
  }
  rows.reset();
  for (const std::int64_t row : missing) {
    sqlite::Statement& read = connection_->blockAtRow;
    read.bind(1, row);
    if (read.step() == SQLITE_ROW) {
      auto block = std::make_shared<const Block>(
          Block{read.columnDouble(0), unpackBlock(read.columnBlob(1))});
      cacheBlock(row, block);
      blocks.push_back(std::move(block));
    }
    read.reset();
  }
  // A block that ends before the window holds nothing of it.
  std::erase_if(blocks, [start](const auto& block) { return block->lastEnd < start; });

  sqlite::Statement& longer = connection_->longBlocks;
  longer.bind(1, type.id);
  longer.bind(2, end);
  longer.bind(3, start);
  while (longer.step() == SQLITE_ROW) {
    blocks.push_back(std::make_shared<const Block>(
        Block{longer.columnDouble(0), unpackBlock(longer.columnBlob(1))}));
  }
  longer.reset();
  return blocks;
}

void ImportedHealthDatabase::cacheBlock(std::int64_t row,
                                        std::shared_ptr<const Block> block) const {
  const std::size_t bytes = block->samples.size() * sizeof(layout::PackedSample);
  if (cachedBytes_ + bytes > kBlockCacheBytes) {
    // Consecutive days read mostly the same blocks, so starting again costs a few reads of each.
    cache_.clear();
    cachedBytes_ = 0;
  }
  cache_.emplace(row, std::move(block));
  cachedBytes_ += bytes;
}

std::vector<platform::StoredSample> ImportedHealthDatabase::samples(
    const std::string& typeIdentifier, std::optional<Date> start, std::optional<Date> end) const {
  const auto type = types_.find(typeIdentifier);
  if (type == types_.end()) {
    return {};
  }
  constexpr double kFar = 1e300;  // beyond any date; stands for an open bound
  const double from = start ? start->timeIntervalSinceReferenceDate() : -kFar;
  const double to = end ? end->timeIntervalSinceReferenceDate() : kFar;
  const auto blocks = blocksFor(type->second, from, to);

  std::vector<layout::PackedSample> packed;
  for (const auto& block : blocks) {
    for (const layout::PackedSample& sample : block->samples) {
      // The window's own test: the blocks are a superset.
      if ((start && sample.end < from) || (end && !(sample.start < to))) {
        continue;
      }
      packed.push_back(sample);
    }
  }
  std::sort(packed.begin(), packed.end(),
            [](const layout::PackedSample& a, const layout::PackedSample& b) {
              return a.ordinal < b.ordinal;
            });

  const platform::InternedString typeName(typeIdentifier);
  std::vector<platform::StoredSample> result;
  result.reserve(packed.size());
  for (const layout::PackedSample& sample : packed) {
    const bool quantity = sample.kind == static_cast<std::uint8_t>(platform::SampleKind::quantity);
    // A sample that points at nothing can only come from a damaged file: left out.
    if (sample.source >= sources_.size() || sample.unit >= units_.size() ||
        (quantity && !units_[sample.unit]) ||
        sample.kind > static_cast<std::uint8_t>(platform::SampleKind::category)) {
      continue;
    }
    platform::StoredSample stored;
    stored.type = typeName;
    stored.sourceBundleIdentifier = sources_[sample.source].bundleIdentifier;
    stored.sourceName = sources_[sample.source].name;
    if (quantity) {
      stored.unit = units_[sample.unit];
    }
    stored.value = sample.value;
    stored.start = Date::fromReferenceSeconds(sample.start);
    stored.end = Date::fromReferenceSeconds(sample.end);
    stored.kind = static_cast<platform::SampleKind>(sample.kind);
    stored.wasUserEntered = layout::enteredValue(sample.entered);
    result.push_back(stored);
  }
  return result;
}

}  // namespace velk::ingest
