#include "ingest/ImportedHealthDatabase.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "ImportLayout.h"
#include "Sqlite.h"
#include "platform/CanonicalUnits.h"
#include "platform/HKObjectType.h"
#include "platform/StoredSample.h"

namespace velk::ingest {

struct ImportedHealthDatabase::Connection {
  sqlite::Connection connection;
  sqlite::Statement windowRows;  ///< the rows of the blocks of a type that start inside a range
  sqlite::Statement blockAtRow;  ///< a block, by row
  sqlite::Statement longBlocks;  ///< the long blocks of a type that reach a moment
};

/// A block as read from the file, checked and unpacked.
struct ImportedHealthDatabase::Block {
  double lastEnd = 0;
  std::vector<layout::PackedSample> samples;
};

namespace {

using Opened = Result<std::shared_ptr<ImportedHealthDatabase>>;

// Larger than any category value the platform defines, far inside the 64-bit integers.
constexpr double kLargestCategoryValue = 1e15;

constexpr const char* kNotOurs = "not a health database made by an import";

// SQLite's answer for a file that is not a database of its own (e.g. a text file).
bool isForeignFile(int code) {
  return code == SQLITE_NOTADB || code == SQLITE_CORRUPT;
}

// Steps through every row of `statement`, handing each to `row`. False when SQLite failed before
// the last row (a damaged page), or `row` refused one.
template <class Row>
bool eachRow(sqlite::Statement& statement, Row row) {
  int status;
  while ((status = statement.step()) == SQLITE_ROW) {
    if (!row(statement)) {
      return false;
    }
  }
  return status == SQLITE_DONE;
}

}  // namespace

Opened ImportedHealthDatabase::open(const std::filesystem::path& path,
                                    platform::HealthDatabaseSettings settings) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) {
    return Opened::failure(databaseError(
        DatabaseErrorCode::cannotOpen,
        path.string() + ": is a directory, not a database file (give the file an import wrote)"));
  }
  if (!std::filesystem::is_regular_file(path, ignored)) {
    return Opened::failure(
        databaseError(DatabaseErrorCode::cannotOpen, path.string() + ": no such database file"));
  }
  std::shared_ptr<ImportedHealthDatabase> database(new ImportedHealthDatabase(path));
  database->settings_ = std::move(settings);
  if (auto loaded = database->load(); loaded.isFailure()) {
    return Opened::failure(loaded.error());
  }
  return Opened::success(std::move(database));
}

ImportedHealthDatabase::ImportedHealthDatabase(std::filesystem::path path)
    : path_(std::move(path)) {}

ImportedHealthDatabase::~ImportedHealthDatabase() = default;

Error ImportedHealthDatabase::errorAbout(DatabaseErrorCode code, const std::string& why) const {
  return databaseError(code, path_.string() + ": " + why);
}

Error ImportedHealthDatabase::damage(const std::string& what) const {
  return errorAbout(DatabaseErrorCode::damaged,
                    "damaged import database (" + what + "); import the export again");
}

// The format marker first: anything else in the file is read only once it is known to be ours.
// Then the small tables, each checked for what an import writes, and the block queries.
Status ImportedHealthDatabase::load() {
  auto opened = sqlite::Connection::open(path_, sqlite::Connection::Mode::readOnly);
  if (opened.isFailure()) {
    return Status::failure(opened.error());
  }
  auto connection = std::make_unique<Connection>();
  connection->connection = std::move(opened).value();
  sqlite3* handle = connection->connection.get();
  for (const auto& step : {&ImportedHealthDatabase::readMeta, &ImportedHealthDatabase::readTypes,
                           &ImportedHealthDatabase::readUnits, &ImportedHealthDatabase::readSources,
                           &ImportedHealthDatabase::readCharacteristics}) {
    if (auto read = (this->*step)(handle); read.isFailure()) {
      return read;
    }
  }
  if (auto prepared = prepareBlockQueries(*connection); prepared.isFailure()) {
    return prepared;
  }
  // Nothing ever writes this file in place (an import replaces it whole), so the connection
  // keeps its shared lock from the first read on instead of taking and dropping it, and checking
  // for a hot journal and a changed file, around every query.
  if (auto kept = connection->connection.execute("PRAGMA locking_mode = EXCLUSIVE");
      kept.isFailure()) {
    return kept;
  }
  connection_ = std::move(connection);
  return Status::success();
}

Status ImportedHealthDatabase::readMeta(sqlite3* handle) {
  const auto refuse = [this](DatabaseErrorCode code, const std::string& why) {
    return Status::failure(errorAbout(code, why));
  };
  sqlite::Statement meta(handle, "SELECT key, value FROM meta");
  if (!meta.prepared()) {
    const bool foreign = isForeignFile(sqlite3_errcode(handle));
    return refuse(DatabaseErrorCode::notADatabase,
                  std::string(kNotOurs) + (foreign ? " (not an SQLite database)" : ""));
  }
  if (!eachRow(meta, [this](sqlite::Statement& row) {
        info_[row.columnText(0)] = row.columnText(1);
        return true;
      })) {
    std::string why = kNotOurs;
    why.append(": ").append(sqlite3_errmsg(handle));
    return refuse(DatabaseErrorCode::notADatabase, why);
  }
  if (info_["format"] != layout::kFormatName) {
    return refuse(DatabaseErrorCode::notADatabase, kNotOurs);
  }
  if (info_["version"] != std::to_string(layout::kFormatVersion)) {
    return refuse(DatabaseErrorCode::wrongVersion,
                  "made by another version of the import (format " + info_["version"] +
                      ", this one reads " + std::to_string(layout::kFormatVersion) +
                      "); import the export again");
  }
  const auto count = info_.find("samples");
  sampleCount_ = count != info_.end() ? std::strtoull(count->second.c_str(), nullptr, 10) : 0;
  return Status::success();
}

Status ImportedHealthDatabase::readTypes(sqlite3* handle) {
  sqlite::Statement types(handle, "SELECT id, identifier, longest_span FROM types");
  std::string flaw;
  const bool read =
      types.prepared() && eachRow(types, [&](sqlite::Statement& row) {
        const double span = row.columnDouble(2);
        if (!std::isfinite(span) || span < 0) {
          flaw = "type " + row.columnText(1) + " spans " + std::to_string(span) + " s";
          return false;
        }
        std::string identifier = row.columnText(1);
        auto canonical = platform::canonicalUnitForQuantityType(identifier);
        types_[identifier] = TypeInfo{identifier, row.columnInt(0), span, std::move(canonical)};
        return true;
      });
  if (!read) {
    return Status::failure(damage(flaw.empty() ? sqlite3_errmsg(handle) : flaw));
  }
  return Status::success();
}

// Each unit must name a unit: samples are checked against their type's dimension when read.
Status ImportedHealthDatabase::readUnits(sqlite3* handle) {
  sqlite::Statement units(handle, "SELECT id, text FROM units ORDER BY id");
  units_.assign(1, std::nullopt);
  std::string flaw;
  const bool read = units.prepared() && eachRow(units, [&](sqlite::Statement& row) {
                      const auto id = row.columnInt(0);
                      auto unit = platform::HKUnit::unitFromString(row.columnText(1));
                      if (id <= 0 || id > 0xFFFF || !unit) {
                        flaw = "unit " + std::to_string(id) + " \"" + row.columnText(1) + "\"";
                        return false;
                      }
                      units_.resize(std::max(units_.size(), static_cast<std::size_t>(id) + 1));
                      units_[static_cast<std::size_t>(id)] = std::move(unit);
                      return true;
                    });
  if (!read) {
    return Status::failure(damage(flaw.empty() ? sqlite3_errmsg(handle) : flaw));
  }
  return Status::success();
}

Status ImportedHealthDatabase::readSources(sqlite3* handle) {
  sqlite::Statement sources(handle, "SELECT id, bundle_identifier, name FROM sources ORDER BY id");
  std::string flaw;
  const bool read = sources.prepared() && eachRow(sources, [&](sqlite::Statement& row) {
                      const auto id = row.columnInt(0);
                      if (id < 0 || id > std::numeric_limits<std::uint32_t>::max()) {
                        flaw = "source " + std::to_string(id);
                        return false;
                      }
                      sources_.resize(std::max(sources_.size(), static_cast<std::size_t>(id) + 1));
                      sources_[static_cast<std::size_t>(id)] =
                          SourceInfo{platform::InternedString(row.columnText(1)),
                                     platform::InternedString(row.columnText(2))};
                      return true;
                    });
  if (!read) {
    return Status::failure(damage(flaw.empty() ? sqlite3_errmsg(handle) : flaw));
  }
  return Status::success();
}

Status ImportedHealthDatabase::readCharacteristics(sqlite3* handle) {
  sqlite::Statement traits(handle,
                           "SELECT birth_year, birth_month, birth_day, biological_sex "
                           "FROM characteristics LIMIT 1");
  if (!traits.prepared()) {
    return Status::failure(damage(sqlite3_errmsg(handle)));
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
  return Status::success();
}

// The rows of a window come from the index alone; the blocks themselves are read only when they
// are not cached already.
Status ImportedHealthDatabase::prepareBlockQueries(Connection& connection) {
  sqlite3* handle = connection.connection.get();
  connection.windowRows = sqlite::Statement(
      handle,
      "SELECT rowid FROM blocks WHERE type_id = ?1 AND is_long = 0 AND first_start >= ?2 AND "
      "first_start < ?3");
  connection.blockAtRow = sqlite::Statement(
      handle,
      "SELECT first_start, last_end, sample_count, checksum, samples FROM blocks WHERE rowid = ?1");
  connection.longBlocks = sqlite::Statement(
      handle,
      "SELECT first_start, last_end, sample_count, checksum, samples FROM blocks WHERE type_id = "
      "?1 AND is_long = 1 AND first_start < ?2 AND last_end >= ?3");
  if (!connection.windowRows.prepared() || !connection.blockAtRow.prepared() ||
      !connection.longBlocks.prepared()) {
    return Status::failure(damage(sqlite3_errmsg(handle)));
  }
  return Status::success();
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

std::vector<std::string> ImportedHealthDatabase::sampleTypes() const {
  std::vector<std::string> held;
  for (const auto& entry : types_) {
    held.push_back(entry.first);
  }
  std::sort(held.begin(), held.end());
  return held;
}

std::vector<std::string> ImportedHealthDatabase::sourceBundleIdentifiers() const {
  std::set<std::string> held;
  for (const auto& source : sources_) {
    held.insert(source.bundleIdentifier.str());
  }
  return {held.begin(), held.end()};
}

platform::SourcePriority ImportedHealthDatabase::sourcePriority() const {
  return platform::SourcePriority(settings_.sourcePriority);
}

// The window's blocks by row from the index, each read from the file only when the cache does
// not hold it; then the long blocks, which are few and not cached.
Result<std::vector<ImportedHealthDatabase::SharedBlock>> ImportedHealthDatabase::blocksFor(
    const TypeInfo& type, double start, double end) const {
  using Blocks = Result<std::vector<SharedBlock>>;
  std::vector<SharedBlock> blocks;
  const std::lock_guard lock(mutex_);
  for (const auto& step :
       {&ImportedHealthDatabase::addWindowBlocks, &ImportedHealthDatabase::addLongBlocks}) {
    if (auto added = (this->*step)(type, start, end, blocks); added.isFailure()) {
      return Blocks::failure(added.error());
    }
  }
  return Blocks::success(std::move(blocks));
}

Status ImportedHealthDatabase::addWindowBlocks(const TypeInfo& type, double start, double end,
                                               std::vector<SharedBlock>& blocks) const {
  std::vector<std::int64_t> missing;
  sqlite::Statement& rows = connection_->windowRows;
  rows.bind(1, type.id);
  rows.bind(2, start - type.longestSpan);
  rows.bind(3, end);
  const bool rowsRead = eachRow(rows, [&](sqlite::Statement& row) {
    const std::int64_t id = row.columnInt(0);
    if (const auto cached = cache_.find(id); cached != cache_.end()) {
      blocks.push_back(cached->second);
    } else {
      missing.push_back(id);
    }
    return true;
  });
  rows.reset();
  if (!rowsRead) {
    return Status::failure(damage(connection_->connection.lastMessage()));
  }
  for (const std::int64_t id : missing) {
    sqlite::Statement& read = connection_->blockAtRow;
    read.bind(1, id);
    auto block = read.step() == SQLITE_ROW
                     ? unpackBlock(type, false, read)
                     : Result<SharedBlock>::failure(damage(connection_->connection.lastMessage()));
    read.reset();
    if (block.isFailure()) {
      return Status::failure(block.error());
    }
    cacheBlock(id, block.value());
    blocks.push_back(std::move(block).value());
  }
  // A block that ends before the window holds nothing of it.
  std::erase_if(blocks, [start](const SharedBlock& block) { return block->lastEnd < start; });
  return Status::success();
}

Status ImportedHealthDatabase::addLongBlocks(const TypeInfo& type, double start, double end,
                                             std::vector<SharedBlock>& blocks) const {
  sqlite::Statement& longer = connection_->longBlocks;
  longer.bind(1, type.id);
  longer.bind(2, end);
  longer.bind(3, start);
  std::optional<Error> flaw;
  const bool longRead = eachRow(longer, [&](sqlite::Statement& row) {
    auto block = unpackBlock(type, true, row);
    if (block.isFailure()) {
      flaw = block.error();
      return false;
    }
    blocks.push_back(std::move(block).value());
    return true;
  });
  longer.reset();
  if (flaw) {
    return Status::failure(std::move(*flaw));
  }
  if (!longRead) {
    return Status::failure(damage(connection_->connection.lastMessage()));
  }
  return Status::success();
}

Result<ImportedHealthDatabase::SharedBlock> ImportedHealthDatabase::unpackBlock(
    const TypeInfo& type, bool isLong, sqlite::Statement& row) const {
  using Unpacked = Result<SharedBlock>;
  const layout::BlockHeader header{type.id, isLong, row.columnDouble(0), row.columnDouble(1),
                                   row.columnInt(2)};
  const std::string_view bytes = row.columnBlob(4);
  const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
  if (header.sampleCount <= 0 ||
      bytes.size() != static_cast<std::size_t>(header.sampleCount) * layout::kSampleBytes) {
    return Unpacked::failure(damage("a block of " + std::to_string(bytes.size()) + " bytes for " +
                                    std::to_string(header.sampleCount) + " samples"));
  }
  if (row.columnInt(3) != layout::blockChecksum(header, data, bytes.size())) {
    return Unpacked::failure(damage("a block does not match its checksum"));
  }
  auto block = std::make_shared<Block>();
  block->lastEnd = header.lastEnd;
  block->samples.reserve(static_cast<std::size_t>(header.sampleCount));
  for (std::size_t at = 0; at < bytes.size(); at += layout::kSampleBytes) {
    const layout::PackedSample sample = layout::unpack(data + at);
    // A sample no import writes can only come from a file changed with its checksums.
    if (const std::string flaw = flawOf(sample, type.canonical); !flaw.empty()) {
      return Unpacked::failure(damage(type.identifier + ": " + flaw));
    }
    block->samples.push_back(sample);
  }
  return Unpacked::success(std::move(block));
}

void ImportedHealthDatabase::cacheBlock(std::int64_t row, SharedBlock block) const {
  const std::size_t bytes = block->samples.size() * sizeof(layout::PackedSample);
  if (cachedBytes_ + bytes > kBlockCacheBytes) {
    // Consecutive days read mostly the same blocks, so starting again costs a few reads of each.
    cache_.clear();
    cachedBytes_ = 0;
  }
  cache_.emplace(row, std::move(block));
  cachedBytes_ += bytes;
}

std::string ImportedHealthDatabase::flawOf(const layout::PackedSample& sample,
                                           const std::optional<platform::HKUnit>& canonical) const {
  if (sample.source >= sources_.size()) {
    return "a sample of source " + std::to_string(sample.source) + ", which is not there";
  }
  if (!std::isfinite(sample.start) || !std::isfinite(sample.end) || sample.end < sample.start) {
    return "a sample from " + std::to_string(sample.start) + " to " + std::to_string(sample.end);
  }
  if (sample.kind == static_cast<std::uint8_t>(platform::SampleKind::category)) {
    // An integer as the import writes them, never one too large for the sample's integer.
    return std::abs(sample.value) <= kLargestCategoryValue
               ? ""
               : "a category sample of value " + std::to_string(sample.value);
  }
  if (sample.kind != static_cast<std::uint8_t>(platform::SampleKind::quantity)) {
    return "a sample of kind " + std::to_string(sample.kind);
  }
  const auto& unit = sample.unit < units_.size() ? units_[sample.unit] : std::nullopt;
  if (!unit || (canonical && !unit->isCompatible(*canonical))) {
    return "a quantity in unit " + std::to_string(sample.unit) + ", not one of its type";
  }
  if (!platform::isPossibleQuantity(sample.value, *unit, canonical)) {
    return "a quantity of " + std::to_string(sample.value) + " " + unit->unitString();
  }
  return "";
}

std::optional<Error> ImportedHealthDatabase::firstFailedRead() const {
  const std::lock_guard lock(mutex_);
  return firstFailure_;
}

Result<std::vector<platform::StoredSample>> ImportedHealthDatabase::samples(
    const std::string& typeIdentifier, std::optional<Date> start, std::optional<Date> end) const {
  using Samples = Result<std::vector<platform::StoredSample>>;
  const auto fail = [this](Error error) {
    const std::lock_guard lock(mutex_);
    if (!firstFailure_) {
      firstFailure_ = error;
    }
    return Samples::failure(std::move(error));
  };
  const auto type = types_.find(typeIdentifier);
  if (type == types_.end()) {
    return Samples::success({});
  }
  constexpr double kFar = 1e300;  // beyond any date; stands for an open bound
  const double from = start ? start->timeIntervalSinceReferenceDate() : -kFar;
  const double to = end ? end->timeIntervalSinceReferenceDate() : kFar;
  const auto blocks = blocksFor(type->second, from, to);
  if (blocks.isFailure()) {
    return fail(blocks.error());
  }

  std::vector<layout::PackedSample> packed;
  for (const SharedBlock& block : blocks.value()) {
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
    platform::StoredSample stored;
    stored.type = typeName;
    stored.sourceBundleIdentifier = sources_[sample.source].bundleIdentifier;
    stored.sourceName = sources_[sample.source].name;
    stored.kind = static_cast<platform::SampleKind>(sample.kind);
    if (stored.kind == platform::SampleKind::quantity) {
      stored.unit = units_[sample.unit];
    }
    stored.value = sample.value;
    stored.start = Date::fromReferenceSeconds(sample.start);
    stored.end = Date::fromReferenceSeconds(sample.end);
    stored.wasUserEntered = layout::enteredValue(sample.entered);
    result.push_back(stored);
  }
  return Samples::success(std::move(result));
}

}  // namespace velk::ingest
