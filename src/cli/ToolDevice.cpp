#include "cli/ToolDevice.h"

#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <utility>
#include <vector>

#include "cli/Instant.h"
#include "velk/ingest/ExportReader.h"
#include "velk/ingest/StoreFile.h"
#include "velk/platform/Calendar.h"
#include "velk/platform/InMemoryHealthDatabase.h"
#include "velk/platform/UserDefaults.h"

namespace velk::cli {
namespace {

// Collects an export's records for an in-memory database.
class CollectingSink final : public ingest::ExportSink {
 public:
  void characteristics(platform::Characteristics value) override {
    characteristics_ = std::move(value);
  }
  void record(platform::SampleRecord value) override { records_.push_back(std::move(value)); }
  void records(std::vector<platform::SampleRecord>&& batch) override {
    if (records_.empty()) {
      records_ = std::move(batch);
      return;
    }
    records_.insert(records_.end(), std::make_move_iterator(batch.begin()),
                    std::make_move_iterator(batch.end()));
  }

  std::shared_ptr<platform::InMemoryHealthDatabase> makeDatabase() const {
    return std::make_shared<platform::InMemoryHealthDatabase>(platform::HealthDatabaseSettings{},
                                                              characteristics_, records_);
  }

 private:
  platform::Characteristics characteristics_;
  std::vector<platform::SampleRecord> records_;
};

Result<platform::OSVersion> parseOSVersion(const std::string& text) {
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
  return Result<platform::OSVersion>::failure(
      inputError("--os-version: \"" + text + "\" is not a version such as 17.0 or 15.4.1"));
}

Result<std::shared_ptr<platform::HealthDatabase>> loadHealthDatabase(const GlobalOptions& options,
                                                                     std::ostream& warnings) {
  using Loaded = Result<std::shared_ptr<platform::HealthDatabase>>;
  const int sources =
      (options.storePath ? 1 : 0) + (options.exportPath ? 1 : 0) + (options.databasePath ? 1 : 0);
  if (sources > 1) {
    return Loaded::failure(inputError("give one data source: --store, --export or --db"));
  }
  if (options.sourcesPath && !options.exportPath) {
    return Loaded::failure(inputError("--sources applies to --export only"));
  }
  if (options.storePath) {
    auto loaded = ingest::StoreFile::load(*options.storePath);
    if (loaded.isFailure()) {
      return Loaded::failure(inputError(loaded.error().message()));
    }
    return Loaded::success(std::move(loaded).value());
  }
  if (options.exportPath) {
    ingest::ExportReadOptions readOptions;
    if (options.sourcesPath) {
      auto rule = ingest::SourceIdentifierRule::fromMappingFile(*options.sourcesPath);
      if (rule.isFailure()) {
        return Loaded::failure(inputError(rule.error().message()));
      }
      readOptions.sources = std::move(rule).value();
    }
    CollectingSink sink;
    auto report = ingest::ExportReader(std::move(readOptions)).read(*options.exportPath, sink);
    if (report.isFailure()) {
      return Loaded::failure(inputError(report.error().message()));
    }
    for (const auto& line : report.value().warningLines()) {
      warnings << "velk: warning: " << *options.exportPath << ": " << line << "\n";
    }
    return Loaded::success(sink.makeDatabase());
  }
  if (options.databasePath) {
    return Loaded::failure(inputError("--db: imported databases are not supported yet"));
  }
  return Loaded::success(std::make_shared<platform::InMemoryHealthDatabase>());
}

}  // namespace

Error inputError(std::string message) {
  return Error(kInputErrorDomain, 2, std::move(message));
}

std::string systemTimeZone() {
  std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::detectHostTimeZone());
  icu::UnicodeString id;
  if (zone) {
    zone->getID(id);
  }
  std::string identifier;
  id.toUTF8String(identifier);
  return platform::Calendar::isKnownTimeZone(identifier) ? identifier : "UTC";
}

std::string systemLanguage() {
  const char* lang = std::getenv("LANG");
  std::string tag = lang != nullptr ? lang : "";
  tag = tag.substr(0, tag.find_first_of(".@"));
  if (tag.empty() || tag == "C" || tag == "POSIX") {
    return "en";
  }
  return tag;
}

std::string defaultStatePath() {
  namespace fs = std::filesystem;
  if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state != '\0') {
    return (fs::path(state) / "velk" / "defaults.sqlite").string();
  }
  const char* home = std::getenv("HOME");
  return (fs::path(home != nullptr ? home : ".") / ".local" / "state" / "velk" / "defaults.sqlite")
      .string();
}

Result<std::shared_ptr<platform::Device>> makeToolDevice(const GlobalOptions& options,
                                                         std::ostream& warnings) {
  using Made = Result<std::shared_ptr<platform::Device>>;

  platform::DeviceSettings settings;
  settings.timeZone = options.timeZone.value_or(systemTimeZone());
  if (!platform::Calendar::isKnownTimeZone(settings.timeZone)) {
    return Made::failure(inputError("--tz: \"" + settings.timeZone +
                                    "\" is not a known time zone (use an IANA name such as "
                                    "Europe/Berlin)"));
  }
  const std::string language = options.language.value_or(systemLanguage());
  if (language.empty()) {
    return Made::failure(inputError("--language: the language tag is empty"));
  }
  settings.preferredLanguages = {language};

  auto version = parseOSVersion(options.osVersion);
  if (version.isFailure()) {
    return Made::failure(version.error());
  }
  settings.osVersion = version.value();

  if (options.now) {
    const auto now = parseInstant(*options.now, platform::Calendar(settings.timeZone));
    if (!now) {
      return Made::failure(inputError("--now: \"" + *options.now + "\" is not an INSTANT"));
    }
    settings.clock = [moment = *now] { return moment; };
  }

  const std::string statePath = options.statePath.value_or(defaultStatePath());
  auto defaults = platform::UserDefaults::open(statePath);
  if (defaults.isFailure()) {
    return Made::failure(inputError("--state: " + statePath + ": " + defaults.error().message()));
  }

  auto database = loadHealthDatabase(options, warnings);
  if (database.isFailure()) {
    return Made::failure(database.error());
  }

  return Made::success(std::make_shared<platform::Device>(
      std::move(settings), std::move(database).value(), std::move(defaults).value(),
      std::make_shared<platform::MainQueue>()));
}

}  // namespace velk::cli
