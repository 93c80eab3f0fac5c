#include "velk/DeviceConfiguration.h"

#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <array>
#include <charconv>
#include <iterator>
#include <utility>

#include "ingest/ExportReader.h"
#include "ingest/ImportedHealthDatabase.h"
#include "ingest/StoreFile.h"
#include "platform/InMemoryHealthDatabase.h"
#include "platform/StoredSample.h"
#include "platform/UserDefaults.h"
#include "velk/Calendar.h"

namespace velk::ingest {
namespace {

using Code = DeviceConfigurationError;

// Collects an export's records for an in-memory database. Quantity records whose unit the store
// cannot hold (no unit at all, or one of another dimension than their type) are counted and
// left out, as the import into a database leaves them out.
class CollectingSink final : public ExportSink {
 public:
  void characteristics(platform::Characteristics value) override {
    characteristics_ = std::move(value);
  }
  void record(platform::SampleRecord value) override {
    if (storable_.accepts(value)) {
      records_.push_back(std::move(value));
    } else {
      ++withoutUnit_;
    }
  }

  std::shared_ptr<platform::InMemoryHealthDatabase> makeDatabase(
      platform::HealthDatabaseSettings settings) const {
    return std::make_shared<platform::InMemoryHealthDatabase>(std::move(settings), characteristics_,
                                                              records_);
  }
  std::uint64_t recordsWithoutUnit() const { return withoutUnit_; }

 private:
  platform::Characteristics characteristics_;
  std::vector<platform::SampleRecord> records_;
  std::uint64_t withoutUnit_ = 0;
  platform::StorableRecordCheck storable_;
};

struct LoadedDatabase {
  std::shared_ptr<platform::HealthDatabase> database;
  std::vector<std::string> warnings;
};

// How a store read from an export or a database behaves: as the platform's, but for the order of
// trusted sources, which the configuration may set.
platform::HealthDatabaseSettings settingsFor(const DeviceConfiguration& configuration) {
  platform::HealthDatabaseSettings settings;
  if (configuration.sourcePriority) {
    settings.sourcePriority = *configuration.sourcePriority;
  }
  return settings;
}

Result<LoadedDatabase> loadExport(const DeviceConfiguration& configuration) {
  using Loaded = Result<LoadedDatabase>;
  ExportReadOptions options;
  if (configuration.sourcesPath) {
    auto rule = SourceIdentifierRule::fromMappingFile(*configuration.sourcesPath);
    if (rule.isFailure()) {
      return Loaded::failure(rule.error());
    }
    options.sources = std::move(rule).value();
  }
  CollectingSink sink;
  auto report = ExportReader(std::move(options)).read(*configuration.exportPath, sink);
  if (report.isFailure()) {
    return Loaded::failure(report.error());
  }
  std::vector<std::string> warnings;
  for (const auto& line : report.value().warningLines()) {
    warnings.push_back(configuration.exportPath->string() + ": " + line);
  }
  if (sink.recordsWithoutUnit() > 0) {
    warnings.push_back(configuration.exportPath->string() + ": " +
                       std::to_string(sink.recordsWithoutUnit()) +
                       " quantity records name no unit of their type and were left out");
  }
  return Loaded::success({sink.makeDatabase(settingsFor(configuration)), std::move(warnings)});
}

Result<LoadedDatabase> loadHealthDatabase(const DeviceConfiguration& configuration) {
  using Loaded = Result<LoadedDatabase>;
  const int sources = (configuration.storePath ? 1 : 0) + (configuration.exportPath ? 1 : 0) +
                      (configuration.databasePath ? 1 : 0);
  if (sources > 1) {
    return Loaded::failure(deviceConfigurationError(
        Code::conflictingSources, "give one data source: a store file, an export or a database"));
  }
  if (configuration.sourcesPath && !configuration.exportPath) {
    return Loaded::failure(deviceConfigurationError(
        Code::conflictingSources, "a source identifier mapping applies to exports only"));
  }
  if (configuration.storePath) {
    auto contents = StoreFile::read(*configuration.storePath);
    if (contents.isFailure()) {
      return Loaded::failure(contents.error());
    }
    auto store = std::move(contents).value();
    if (configuration.sourcePriority) {
      store.settings.sourcePriority = *configuration.sourcePriority;
    }
    return Loaded::success({StoreFile::makeDatabase(store), {}});
  }
  if (configuration.exportPath) {
    return loadExport(configuration);
  }
  if (configuration.databasePath) {
    auto opened =
        ImportedHealthDatabase::open(*configuration.databasePath, settingsFor(configuration));
    if (opened.isFailure()) {
      return Loaded::failure(opened.error());
    }
    return Loaded::success({std::move(opened).value(), {}});
  }
  return Loaded::success({std::make_shared<platform::InMemoryHealthDatabase>(), {}});
}

}  // namespace

Error deviceConfigurationError(DeviceConfigurationError code, std::string message) {
  return Error(kDeviceConfigurationDomain, static_cast<std::int64_t>(code), std::move(message));
}

Result<platform::OSVersion> parseOSVersion(std::string_view text) {
  platform::OSVersion version{0, 0, 0};
  std::array<int*, 3> parts{&version.major, &version.minor, &version.patch};
  const char* cursor = text.data();
  const char* const end = text.data() + text.size();
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const auto [next, problem] = std::from_chars(cursor, end, *parts[i]);
    if (problem != std::errc() || *parts[i] < 0) {
      break;
    }
    cursor = next;
    if (cursor == end && i >= 1) {
      return Result<platform::OSVersion>::success(version);
    }
    if (cursor == end || *cursor != '.') {
      break;
    }
    ++cursor;
  }
  return Result<platform::OSVersion>::failure(deviceConfigurationError(
      Code::badOSVersion, "\"" + std::string(text) + "\" is not a version such as 17.0 or 15.4.1"));
}

std::string hostTimeZone() {
  std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::detectHostTimeZone());
  icu::UnicodeString id;
  if (zone) {
    zone->getID(id);
  }
  std::string identifier;
  id.toUTF8String(identifier);
  return platform::Calendar::isKnownTimeZone(identifier) ? identifier : "UTC";
}

Result<ConfiguredDevice> makeConfiguredDevice(const DeviceConfiguration& configuration) {
  using Made = Result<ConfiguredDevice>;

  if (!platform::Calendar::isKnownTimeZone(configuration.timeZone)) {
    return Made::failure(deviceConfigurationError(
        Code::unknownTimeZone, "\"" + configuration.timeZone +
                                   "\" is not a known time zone (use an IANA name such as "
                                   "Europe/Berlin)"));
  }
  if (configuration.language.empty()) {
    return Made::failure(
        deviceConfigurationError(Code::emptyLanguage, "the language tag is empty"));
  }

  platform::DeviceSettings settings;
  settings.timeZone = configuration.timeZone;
  settings.preferredLanguages = {configuration.language};
  settings.osVersion = configuration.osVersion;
  if (configuration.now) {
    settings.clock = [moment = *configuration.now] { return moment; };
  }

  std::shared_ptr<platform::UserDefaults> defaults;
  if (configuration.statePath) {
    auto opened = platform::UserDefaults::open(*configuration.statePath);
    if (opened.isFailure()) {
      return Made::failure(deviceConfigurationError(
          Code::stateUnusable,
          configuration.statePath->string() + ": " + opened.error().message()));
    }
    defaults = std::move(opened).value();
  } else {
    defaults = platform::UserDefaults::inMemory();
  }

  auto loaded = loadHealthDatabase(configuration);
  if (loaded.isFailure()) {
    return Made::failure(loaded.error());
  }
  auto source = std::move(loaded).value();

  auto device = std::make_shared<platform::Device>(std::move(settings), std::move(source.database),
                                                   std::move(defaults),
                                                   std::make_shared<platform::MainQueue>());
  return Made::success({std::move(device), std::move(source.warnings)});
}

}  // namespace velk::ingest
