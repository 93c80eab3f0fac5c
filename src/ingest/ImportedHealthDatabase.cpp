#include "ingest/ImportedHealthDatabase.h"

#include <algorithm>
#include <limits>
#include <set>

#include "ImportLayout.h"
#include "Sqlite.h"
#include "platform/HKObjectType.h"

namespace velk::ingest {

struct ImportedHealthDatabase::Connection {
  sqlite::Connection connection;
  sqlite::Statement windowBlocks;  ///< blocks of a type that start inside a range
  sqlite::Statement longBlocks;    ///< the long blocks of a type that reach a moment
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

Status ImportedHealthDatabase::load(const std::filesystem::path& path) {
  const auto failure = [&path](DatabaseErrorCode code, const std::string& why) {
    return Status::failure(databaseError(code, path.string() + ": " + why));
  };
  auto opened = sqlite::Connection::open(path, sqlite::Connection::Mode::readOnly);
  if (opened.isFailure()) {
    return Status::failure(opened.error());
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

  connection->windowBlocks = sqlite::Statement(
      handle,
      "SELECT samples FROM blocks WHERE type_id = ?1 AND is_long = 0 AND first_start >= ?2 "
      "AND first_start < ?3 AND last_end >= ?4");
  connection->longBlocks = sqlite::Statement(
      handle,
      "SELECT samples FROM blocks WHERE type_id = ?1 AND is_long = 1 AND first_start < ?2 "
      "AND last_end >= ?3");
  if (!connection->windowBlocks.prepared() || !connection->longBlocks.prepared()) {
    return damaged();
  }
  const auto count = info_.find("samples");
  sampleCount_ = count != info_.end() ? std::strtoull(count->second.c_str(), nullptr, 10) : 0;
  connection_ = std::move(connection);
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

std::vector<std::string> ImportedHealthDatabase::blobsFor(const TypeInfo& type, double start,
                                                          double end) const {
  std::vector<std::string> blobs;
  const std::lock_guard lock(mutex_);
  const auto collect = [&blobs](sqlite::Statement& statement) {
    while (statement.step() == SQLITE_ROW) {
      blobs.emplace_back(statement.columnBlob(0));
    }
    statement.reset();
  };
  sqlite::Statement& window = connection_->windowBlocks;
  window.bind(1, type.id);
  window.bind(2, start - type.longestSpan);
  window.bind(3, end);
  window.bind(4, start);
  collect(window);
  sqlite::Statement& longer = connection_->longBlocks;
  longer.bind(1, type.id);
  longer.bind(2, end);
  longer.bind(3, start);
  collect(longer);
  return blobs;
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
  const std::vector<std::string> blobs = blobsFor(type->second, from, to);

  std::vector<layout::PackedSample> packed;
  for (const std::string& blob : blobs) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(blob.data());
    for (std::size_t at = 0; at + layout::kSampleBytes <= blob.size(); at += layout::kSampleBytes) {
      const layout::PackedSample sample = layout::unpack(bytes + at);
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
