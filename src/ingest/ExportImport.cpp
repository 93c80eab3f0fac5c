#include "velk/ExportImport.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <unordered_map>
#include <vector>

#include "ImportFile.h"
#include "ImportLayout.h"
#include "Sqlite.h"
#include "ingest/ExportErrors.h"
#include "ingest/ExportReader.h"
#include "ingest/ExportSource.h"
#include "ingest/ImportedHealthDatabase.h"
#include "platform/HKUnit.h"
#include "platform/StoredSample.h"

namespace velk::ingest {
namespace {

using layout::PackedSample;

// Samples buffered before they are written out as blocks: about 2.5 MiB. The thread that writes
// them also hands the parser threads their parts, so a flush must be short: one of a million
// samples kept it away for 90 ms, in which the parsers ran dry. Exports keep the records of one
// type together and in time order, so a flush seldom splits a day's block in two (1% more
// blocks than with flushes of a million).
constexpr std::size_t kFlushSamples = std::size_t{1} << 16;

Error stoppedError(const std::string& exportDescription) {
  return exportError(ExportErrorCode::stopped, exportDescription + ": the import was stopped");
}

// The source in front of the reader, counting the bytes that pass for the progress display and
// failing the next read once the host asks to stop.
class CountingSource final : public ExportSource {
 public:
  CountingSource(std::unique_ptr<ExportSource> inner, std::function<bool()> stopRequested)
      : inner_(std::move(inner)), stopRequested_(std::move(stopRequested)) {}

  Result<std::size_t> read(char* buffer, std::size_t size) override {
    if (stopRequested_ && stopRequested_()) {
      return Result<std::size_t>::failure(exportError(
          ExportErrorCode::stopped, inner_->description() + ": the import was stopped"));
    }
    auto got = inner_->read(buffer, size);
    if (got.isSuccess()) {
      bytes_.fetch_add(got.value(), std::memory_order_relaxed);
    }
    return got;
  }
  const std::string& description() const override { return inner_->description(); }
  std::uint64_t size() const override { return inner_->size(); }
  std::uint64_t bytesRead() const { return bytes_.load(std::memory_order_relaxed); }

 private:
  std::unique_ptr<ExportSource> inner_;
  std::function<bool()> stopRequested_;
  std::atomic<std::uint64_t> bytes_{0};
};

// Writes what the reader delivers into a fresh database, block by block. SQLite failures are
// kept and reported at the end; after the first one nothing more is written.
class DatabaseWriter final : public ExportSink {
 public:
  DatabaseWriter(sqlite::Connection& connection, const CountingSource& source,
                 const ImportProgressHandler& progress)
      : connection_(connection), source_(source), progress_(progress) {}

  // The file is written once, front to back, and only its small index is read back: a page
  // cache of 16 pages serves that. SQLite's default of 2 MB kept claiming fresh memory while
  // the file grew (half the import's page faults, a tenth of its CPU time).
  Status prepare() {
    if (auto made = connection_.execute(
            "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; PRAGMA locking_mode = "
            "EXCLUSIVE; PRAGMA page_size = 65536; PRAGMA cache_size = 16; BEGIN;");
        made.isFailure()) {
      return made;
    }
    if (auto made = connection_.execute(layout::kSchema); made.isFailure()) {
      return made;
    }
    auto insert = connection_.prepare(
        "INSERT INTO blocks(type_id, is_long, first_start, last_end, sample_count, samples, "
        "checksum) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)");
    if (insert.isFailure()) {
      return Status::failure(insert.error());
    }
    insertBlock_ = std::move(insert).value();
    return Status::success();
  }

  void characteristics(platform::Characteristics characteristics) override {
    characteristics_ = std::move(characteristics);
    characteristicsFound_ = true;
  }

  void record(platform::SampleRecord record) override {
    ExportRecordBatch batch;
    batch.types.push_back(record.type);
    batch.units.push_back(record.unit);
    batch.sources.push_back(ExportRecordSource{record.sourceBundleIdentifier, record.sourceName});
    batch.records.push_back(ExportRecord{record.start, record.end, record.value, 0, 1, 0,
                                         record.kind, record.wasUserEntered});
    records(std::move(batch));
  }

  // The batch's texts are looked up once; each record then costs a few array reads.
  void records(ExportRecordBatch&& batch) override {
    batchTypes_.clear();
    for (const auto& identifier : batch.types) {
      batchTypes_.push_back(&typeEntry(identifier));
    }
    batchUnits_.clear();
    for (const auto& text : batch.units) {
      batchUnits_.push_back(unitId(text));
    }
    // Records of several types take turns, so the answers are kept by type and unit; a batch
    // of very many (no real export has them) is asked record by record instead.
    const auto pairs = batch.types.size() * batch.units.size();
    batchStorable_.assign(pairs <= kMostStorablePairs ? pairs : 0, Storable::unknown);
    batchSources_.clear();
    for (const auto& source : batch.sources) {
      batchSources_.push_back(sourceId(source.bundleIdentifier, source.name));
    }
    for (const ExportRecord& record : batch.records) {
      add(record, batch);
    }
    reportProgress(false);
  }

  /// Writes what is buffered, the small tables and the index, and commits.
  Status finish(const ImportSummary& summary) {
    flush();
    if (failure_) {
      return Status::failure(*failure_);
    }
    for (const auto& step :
         {writeTypes(), writeUnits(), writeSources(), writeCharacteristics(), writeMeta(summary)}) {
      if (step.isFailure()) {
        return step;
      }
    }
    insertBlock_ = sqlite::Statement();  // finalised, so that the connection can close
    if (auto indexed = connection_.execute(layout::kIndex); indexed.isFailure()) {
      return indexed;
    }
    if (auto committed = connection_.execute("COMMIT;"); committed.isFailure()) {
      return committed;
    }
    reportProgress(true);
    return Status::success();
  }

  std::uint64_t samplesStored() const { return stored_; }
  std::uint64_t samplesWithoutUnit() const { return withoutUnit_; }
  bool characteristicsFound() const { return characteristicsFound_; }
  /// Fills the summary's span of the stored samples, when there are any.
  void describeSpan(ImportSummary& summary) const {
    if (stored_ > 0) {
      summary.earliestSampleStart = Date::fromReferenceSeconds(earliest_);
      summary.latestSampleEnd = Date::fromReferenceSeconds(latest_);
    }
  }

 private:
  struct TypeEntry {
    std::int64_t id = 0;
    double longestSpan = 0;
  };
  struct Block {
    std::int64_t typeId = 0;
    bool isLong = false;
    double firstStart = 0;
    double lastEnd = 0;
    std::vector<PackedSample> samples;
  };
  struct BlockKey {
    std::int64_t typeId;
    bool isLong;
    std::int64_t day;
    bool operator==(const BlockKey&) const = default;
  };
  struct BlockKeyHash {
    std::size_t operator()(const BlockKey& key) const {
      return std::hash<std::int64_t>{}(key.typeId * 2 + key.isLong) ^
             std::hash<std::int64_t>{}(key.day) * 31;
    }
  };

  void add(const ExportRecord& record, const ExportRecordBatch& batch) {
    PackedSample sample;
    TypeEntry& type = *batchTypes_[record.type];
    if (record.kind == platform::SampleKind::quantity) {
      const auto unit = batchUnits_[record.unit];
      if (!unit || !isStorable(record, batch)) {
        ++withoutUnit_;  // no query could convert its value; the store would refuse it too
        return;
      }
      sample.unit = *unit;
    }
    sample.start = record.start.timeIntervalSinceReferenceDate();
    sample.end = record.end.timeIntervalSinceReferenceDate();
    sample.value = record.value;
    sample.ordinal = ordinal_++;
    sample.source = batchSources_[record.source];
    sample.kind = static_cast<std::uint8_t>(record.kind);
    sample.entered = layout::enteredCode(record.wasUserEntered);

    const bool isLong = sample.end - sample.start > layout::kLongSampleSeconds;
    const auto day = static_cast<std::int64_t>(std::floor(sample.start / 86400.0));
    Block& block = open_[BlockKey{type.id, isLong, isLong ? 0 : day}];
    if (block.samples.empty()) {
      block.typeId = type.id;
      block.isLong = isLong;
      block.firstStart = sample.start;
      block.lastEnd = sample.end;
    }
    block.firstStart = std::min(block.firstStart, sample.start);
    block.lastEnd = std::max(block.lastEnd, sample.end);
    if (!isLong) {
      type.longestSpan = std::max(type.longestSpan, block.lastEnd - block.firstStart);
    }
    block.samples.push_back(sample);
    if (++buffered_ >= kFlushSamples) {
      flush();
    }
  }

  TypeEntry& typeEntry(const std::string& identifier) {
    if (identifier == lastType_ && lastTypeEntry_ != nullptr) {
      return *lastTypeEntry_;
    }
    auto [found, added] = types_.try_emplace(identifier);
    if (added) {
      found->second.id = static_cast<std::int64_t>(types_.size());
    }
    lastType_ = identifier;
    lastTypeEntry_ = &found->second;
    return found->second;
  }

  // Whether the store can hold the record's quantity, asked of the platform once per type and
  // unit of a batch.
  bool isStorable(const ExportRecord& record, const ExportRecordBatch& batch) {
    if (batchStorable_.empty()) {
      return storable_.acceptsQuantity(batch.types[record.type], batch.units[record.unit]);
    }
    auto& known = batchStorable_[std::size_t{record.type} * batch.units.size() + record.unit];
    if (known == Storable::unknown) {
      known = storable_.acceptsQuantity(batch.types[record.type], batch.units[record.unit])
                  ? Storable::yes
                  : Storable::no;
    }
    return known == Storable::yes;
  }

  std::optional<std::uint16_t> unitId(const std::string& text) {
    if (const auto found = units_.find(text); found != units_.end()) {
      return found->second;
    }
    std::optional<std::uint16_t> id;
    if (platform::HKUnit::unitFromString(text) && unitTexts_.size() < 0xFFFF) {
      unitTexts_.push_back(text);
      id = static_cast<std::uint16_t>(unitTexts_.size());  // ids from 1; 0 is no unit
    }
    units_.emplace(text, id);
    return id;
  }

  std::uint32_t sourceId(const std::string& bundleIdentifier, const std::string& name) {
    key_.assign(bundleIdentifier).push_back('\0');
    key_.append(name);
    auto [found, added] = sources_.try_emplace(key_, 0);
    if (added) {
      found->second = static_cast<std::uint32_t>(sourceList_.size());
      sourceList_.emplace_back(bundleIdentifier, name);
    }
    return found->second;
  }

  void flush() {
    std::vector<unsigned char> bytes;
    for (auto& [key, block] : open_) {
      if (failure_) {
        break;
      }
      bytes.resize(block.samples.size() * layout::kSampleBytes);
      for (std::size_t i = 0; i < block.samples.size(); ++i) {
        layout::pack(block.samples[i], bytes.data() + i * layout::kSampleBytes);
      }
      const layout::BlockHeader header{block.typeId, block.isLong, block.firstStart, block.lastEnd,
                                       static_cast<std::int64_t>(block.samples.size())};
      insertBlock_.bind(1, header.typeId);
      insertBlock_.bind(2, std::int64_t{header.isLong ? 1 : 0});
      insertBlock_.bind(3, header.firstStart);
      insertBlock_.bind(4, header.lastEnd);
      insertBlock_.bind(5, header.sampleCount);
      insertBlock_.bindBlob(6, bytes.data(), bytes.size());
      insertBlock_.bind(7, std::int64_t{layout::blockChecksum(header, bytes.data(), bytes.size())});
      if (insertBlock_.step() != SQLITE_DONE) {
        failure_ = databaseError(DatabaseErrorCode::sqliteFailed,
                                 "cannot store samples: " + connection_.lastMessage());
      }
      insertBlock_.reset();
      stored_ += block.samples.size();
      earliest_ = std::min(earliest_, block.firstStart);
      latest_ = std::max(latest_, block.lastEnd);
    }
    open_.clear();
    buffered_ = 0;
  }

  Status insertRows(std::string_view sql,
                    const std::function<bool(sqlite::Statement&)>& bindAndStepAll) {
    auto statement = connection_.prepare(sql);
    if (statement.isFailure()) {
      return Status::failure(statement.error());
    }
    sqlite::Statement prepared = std::move(statement).value();
    if (!bindAndStepAll(prepared)) {
      return Status::failure(databaseError(DatabaseErrorCode::sqliteFailed,
                                           "cannot store: " + connection_.lastMessage()));
    }
    return Status::success();
  }

  static bool stepOnce(sqlite::Statement& statement) {
    const bool done = statement.step() == SQLITE_DONE;
    statement.reset();
    return done;
  }

  Status writeTypes() {
    return insertRows("INSERT INTO types(id, identifier, longest_span) VALUES (?1, ?2, ?3)",
                      [this](sqlite::Statement& insert) {
                        for (const auto& [identifier, type] : types_) {
                          insert.bind(1, type.id);
                          insert.bind(2, std::string_view(identifier));
                          insert.bind(3, type.longestSpan);
                          if (!stepOnce(insert)) {
                            return false;
                          }
                        }
                        return true;
                      });
  }

  Status writeUnits() {
    return insertRows("INSERT INTO units(id, text) VALUES (?1, ?2)",
                      [this](sqlite::Statement& insert) {
                        for (std::size_t i = 0; i < unitTexts_.size(); ++i) {
                          insert.bind(1, static_cast<std::int64_t>(i + 1));
                          insert.bind(2, std::string_view(unitTexts_[i]));
                          if (!stepOnce(insert)) {
                            return false;
                          }
                        }
                        return true;
                      });
  }

  Status writeSources() {
    return insertRows("INSERT INTO sources(id, bundle_identifier, name) VALUES (?1, ?2, ?3)",
                      [this](sqlite::Statement& insert) {
                        for (std::size_t i = 0; i < sourceList_.size(); ++i) {
                          insert.bind(1, static_cast<std::int64_t>(i));
                          insert.bind(2, std::string_view(sourceList_[i].first));
                          insert.bind(3, std::string_view(sourceList_[i].second));
                          if (!stepOnce(insert)) {
                            return false;
                          }
                        }
                        return true;
                      });
  }

  Status writeCharacteristics() {
    return insertRows(
        "INSERT INTO characteristics(birth_year, birth_month, birth_day, biological_sex) "
        "VALUES (?1, ?2, ?3, ?4)",
        [this](sqlite::Statement& insert) {
          // Exports carry plain values here; a failing read exists only in store files.
          if (const auto* birth =
                  std::get_if<platform::DateComponents>(&characteristics_.dateOfBirth)) {
            const std::optional<std::int64_t> parts[] = {birth->year, birth->month, birth->day};
            for (int i = 0; i < 3; ++i) {
              if (parts[i]) {
                insert.bind(i + 1, *parts[i]);
              }
            }
          }
          const auto* sex = std::get_if<std::int64_t>(&characteristics_.biologicalSex);
          insert.bind(4, sex != nullptr ? *sex : std::int64_t{0});
          return stepOnce(insert);
        });
  }

  Status writeMeta(const ImportSummary& summary) {
    std::string warnings;
    for (const std::string& line : summary.report.warningLines()) {
      warnings += line + "\n";
    }
    const std::pair<std::string, std::string> entries[] = {
        {"format", std::string(layout::kFormatName)},
        {"version", std::to_string(layout::kFormatVersion)},
        {"export", summary.exportDescription},
        {"samples", std::to_string(stored_)},
        {"warnings", warnings},
    };
    return insertRows("INSERT INTO meta(key, value) VALUES (?1, ?2)",
                      [&entries](sqlite::Statement& insert) {
                        for (const auto& [key, value] : entries) {
                          insert.bind(1, std::string_view(key));
                          insert.bind(2, std::string_view(value));
                          if (!stepOnce(insert)) {
                            return false;
                          }
                        }
                        return true;
                      });
  }

  void reportProgress(bool finished) {
    if (!progress_) {
      return;
    }
    progress_(ImportProgress{source_.bytesRead(), source_.size(), ordinal_, finished});
  }

  sqlite::Connection& connection_;
  const CountingSource& source_;
  const ImportProgressHandler& progress_;
  sqlite::Statement insertBlock_;
  std::optional<Error> failure_;

  std::unordered_map<std::string, TypeEntry> types_;
  std::string lastType_;
  TypeEntry* lastTypeEntry_ = nullptr;
  std::unordered_map<std::string, std::optional<std::uint16_t>> units_;
  std::vector<std::string> unitTexts_;
  std::unordered_map<std::string, std::uint32_t> sources_;
  std::vector<std::pair<std::string, std::string>> sourceList_;
  std::string key_;
  std::unordered_map<BlockKey, Block, BlockKeyHash> open_;
  std::size_t buffered_ = 0;
  std::uint64_t ordinal_ = 0;
  std::uint64_t stored_ = 0;
  std::uint64_t withoutUnit_ = 0;
  double earliest_ = std::numeric_limits<double>::infinity();  ///< in reference seconds
  double latest_ = -std::numeric_limits<double>::infinity();
  // The ids of the current batch's types, units and sources, by their index in the batch.
  std::vector<TypeEntry*> batchTypes_;
  std::vector<std::optional<std::uint16_t>> batchUnits_;
  std::vector<std::uint32_t> batchSources_;
  platform::StorableRecordCheck storable_;
  enum class Storable : std::uint8_t { unknown, yes, no };
  static constexpr std::size_t kMostStorablePairs = std::size_t{1} << 16;
  std::vector<Storable> batchStorable_;  ///< by type index * units + unit index of this batch
  platform::Characteristics characteristics_;
  bool characteristicsFound_ = false;
};

// A failure of SQLite while the new file is written, said with what the user can do about it.
Error writeFailure(const std::filesystem::path& databasePath, const Error& cause) {
  return databaseError(DatabaseErrorCode::sqliteFailed,
                       databasePath.string() + ": cannot write the new database (" +
                           cause.message() +
                           "); the old one is kept: check the free space and permissions of its "
                           "folder and import again");
}

}  // namespace

Result<ImportSummary> importExport(const std::filesystem::path& exportPath,
                                   const std::filesystem::path& databasePath,
                                   const ImportOptions& options,
                                   const ImportProgressHandler& progress) {
  auto opened = ExportSource::open(exportPath);
  if (opened.isFailure()) {
    return Result<ImportSummary>::failure(opened.error());
  }
  CountingSource source(std::move(opened).value(), options.stopRequested);

  auto file = ImportFile::create(databasePath);
  if (file.isFailure()) {
    return Result<ImportSummary>::failure(file.error());
  }
  ImportFile temporary = std::move(file).value();
  const auto fail = [](Error error) { return Result<ImportSummary>::failure(std::move(error)); };

  auto connection = sqlite::Connection::open(temporary.path(), sqlite::Connection::Mode::create);
  if (connection.isFailure()) {
    return fail(connection.error());
  }
  ImportSummary summary;
  {
    sqlite::Connection database = std::move(connection).value();
    DatabaseWriter writer(database, source, progress);
    if (auto prepared = writer.prepare(); prepared.isFailure()) {
      return fail(writeFailure(databasePath, prepared.error()));
    }
    ExportReadOptions readOptions;
    readOptions.sources = options.sources;
    auto report = ExportReader(std::move(readOptions)).read(source, writer);
    if (report.isFailure()) {
      return fail(report.error());
    }
    summary.report = std::move(report).value();
    summary.exportDescription = source.description();
    summary.xmlBytes = source.bytesRead();
    if (auto finished = writer.finish(summary); finished.isFailure()) {
      return fail(writeFailure(databasePath, finished.error()));
    }
    summary.samplesStored = writer.samplesStored();
    summary.samplesWithoutUnit = writer.samplesWithoutUnit();
    summary.characteristicsFound = writer.characteristicsFound();
    writer.describeSpan(summary);
    if (!database.close()) {
      return fail(writeFailure(
          databasePath, databaseError(DatabaseErrorCode::sqliteFailed, database.lastMessage())));
    }
  }
  // The last chance to stop: after this the new database takes the old one's place.
  if (options.stopRequested && options.stopRequested()) {
    return fail(stoppedError(source.description()));
  }
  if (auto installed = temporary.install(); installed.isFailure()) {
    return fail(installed.error());
  }
  return Result<ImportSummary>::success(std::move(summary));
}

}  // namespace velk::ingest
