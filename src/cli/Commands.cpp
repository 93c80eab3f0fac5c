#include "cli/Commands.h"

#include <nlohmann/json.hpp>

#include <signal.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>

#include "cli/GlobalOptions.h"
#include "cli/Instant.h"
#include "cli/ProgressBar.h"
#include "cli/Tool.h"
#include "cli/ToolDevice.h"
#include "platform/DateFormatter.h"
#include "platform/HealthDatabase.h"
#include "table/AwaitedAnswer.h"
#include "velk/Calendar.h"
#include "velk/DayDocuments.h"
#include "velk/DayTable.h"
#include "velk/Device.h"
#include "velk/ExportImport.h"
#include "velk/VelkDataType.h"
#include "velk/VelkExtractionManager.h"
#include "velk/VelkPermissionExtraction.h"

namespace velk::cli {
namespace {

// Prints one day's documents, every kind asked at once as a host asks, one line each in the order
// asked; with a `day` (yyyy-MM-dd), each inside its envelope. Returns the exit status:
// kExitErrorResult when the library answered with an error (printed as an error result),
// kExitFailure when it gave no answer in time.
int printDay(VelkExtractionManager& manager, const std::vector<VelkDataType>& kinds, Date date,
             const std::optional<std::string>& day, std::ostream& out, std::ostream& err) {
  int status = kExitSuccess;
  const auto answers = table::askDay(manager, kinds, date);
  for (std::size_t i = 0; i < answers.size(); ++i) {
    const auto& answer = answers[i];
    if (!answer.isSuccess() && answer.error() == table::noAnswerError()) {
      err << "velk: " << answer.error().message() << "\n";
      return kExitFailure;
    }
    const nlohmann::json line = answer.isSuccess() ? answer.value() : errorResult(answer.error());
    if (day) {
      // In reading order: day and kind before the long document.
      nlohmann::ordered_json envelope;
      envelope["day"] = *day;
      envelope["kind"] = table::kindName(kinds[i]);
      envelope[answer.isSuccess() ? "document" : "error"] =
          nlohmann::ordered_json(answer.isSuccess() ? line : line["error"]);
      out << envelope.dump() << "\n";
    } else {
      out << line.dump() << "\n";
    }
    if (!answer.isSuccess()) {
      status = kExitErrorResult;
    }
  }
  return status;
}

}  // namespace

nlohmann::json errorResult(const Error& error) {
  return {{"error",
           {{"domain", error.domain()}, {"code", error.code()}, {"message", error.message()}}}};
}

void printErrorResult(const Error& error, std::ostream& out) {
  out << errorResult(error).dump() << "\n";
}

int runLastDate(std::ostream& out) {
  const VelkExtractionManager manager;
  const auto device = platform::Device::current();
  const platform::DateFormatter iso("yyyy-MM-dd'T'HH:mm:ss.SSSxxx", device->timeZone(),
                                    "en_US_POSIX");
  nlohmann::json dates = nlohmann::json::object();
  for (const VelkDataType kind : allVelkDataTypes) {
    const auto stored = manager.getLastExtractionDate(kind);
    dates[std::string(rawValue(kind))] =
        stored ? nlohmann::json(iso.string(*stored)) : nlohmann::json(nullptr);
  }
  out << dates.dump() << "\n";
  return kExitSuccess;
}

int runSummary(const SummaryRequest& request, std::ostream& out, std::ostream& err) {
  const platform::Calendar calendar = platform::Calendar::current();
  std::vector<Date> moments;
  if (request.date) {
    const auto moment = readInstant("--date", *request.date, calendar);
    if (moment.isFailure()) {
      err << "velk: " << moment.error().message() << "\n";
      return kExitBadInput;
    }
    moments.push_back(moment.value());
  } else {
    auto range = parseDayRange(*request.from, *request.to, request.at, calendar);
    if (range.isFailure()) {
      err << "velk: " << range.error().message() << "\n";
      return kExitBadInput;
    }
    auto days = table::dayMoments(range.value());
    if (days.isFailure()) {
      err << "velk: --from/--to: " << days.error().message() << "\n";
      return kExitBadInput;
    }
    moments = std::move(days).value();
  }

  // One manager for every day, as a host keeps one. A range's documents name their day: an empty
  // night's document carries the moment of the run, so a bare line could be placed only by its
  // position.
  VelkExtractionManager manager;
  int status = kExitSuccess;
  const auto kinds = table::kindsFromNames(request.kinds).value_or(std::vector<VelkDataType>{});
  const bool enveloped = !request.date && !request.bare;
  const platform::DateFormatter dayFormat("yyyy-MM-dd", platform::Device::current()->timeZone(),
                                          "en_US_POSIX");
  for (const Date moment : moments) {
    const auto dayName = enveloped ? std::optional(dayFormat.string(moment)) : std::nullopt;
    const int day = printDay(manager, kinds, moment, dayName, out, err);
    if (day == kExitFailure) {
      return day;
    }
    status = std::max(status, day);
  }
  // A store that could not be read (a damaged database) fails the command, though the documents
  // were written without the data it could not give.
  if (auto failed = platform::Device::current()->healthDatabase()->firstFailedRead()) {
    err << "velk: " << failed->message() << "\n";
    status = std::max(status, static_cast<int>(kExitBadInput));
  }
  return status;
}

int runPermissions(const std::string& family, std::ostream& out, std::ostream& err) {
  VelkPermissionExtraction permissions;
  auto answer = std::make_shared<table::AwaitedAnswer<Result<bool>>>();
  auto completion = [answer](Result<bool> result) { answer->set(std::move(result)); };
  if (family == "all") {
    permissions.requestAllPermissions(completion);
  } else if (family == "sleep") {
    permissions.requestSleepPermissions(completion);
  } else if (family == "physical") {
    permissions.requestPhysicalPermissions(completion);
  } else {
    permissions.requesBodyPermissions(completion);
  }
  if (!answer->await()) {
    err << "velk: the health store gave no answer within " << table::kAnswerTimeout.count()
        << " s\n";
    return kExitFailure;
  }
  const Result<bool> result = answer->take();
  if (result.isFailure()) {
    printErrorResult(result.error(), out);
    return kExitErrorResult;
  }
  const auto requests = platform::Device::current()->healthDatabase()->authorizationRequests();
  nlohmann::json requested = nlohmann::json::array();
  if (!requests.empty()) {
    for (const auto& identifier : requests.back()) {  // a std::set: sorted
      requested.push_back(identifier);
    }
  }
  out << nlohmann::json{{"success", result.value()}, {"requested", requested}}.dump() << "\n";
  return kExitSuccess;
}

namespace {

std::atomic<bool> interrupted{false};

extern "C" void noteInterrupt(int) {
  interrupted.store(true);
}

// While it lives, Ctrl-C (SIGINT) and SIGTERM ask the import to stop instead of ending the
// process: the import then removes its unfinished file and the database before it is kept.
class InterruptsStopTheImport {
 public:
  InterruptsStopTheImport() {
    interrupted.store(false);
    struct sigaction action {};
    action.sa_handler = noteInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &previousInterrupt_);
    sigaction(SIGTERM, &action, &previousTerminate_);
  }
  ~InterruptsStopTheImport() {
    sigaction(SIGINT, &previousInterrupt_, nullptr);
    sigaction(SIGTERM, &previousTerminate_, nullptr);
  }
  InterruptsStopTheImport(const InterruptsStopTheImport&) = delete;
  InterruptsStopTheImport& operator=(const InterruptsStopTheImport&) = delete;

  static bool stopRequested() { return interrupted.load(); }

 private:
  struct sigaction previousInterrupt_ {};
  struct sigaction previousTerminate_ {};
};

}  // namespace

int runImport(const std::string& exportPath, const GlobalOptions& global, std::ostream& out,
              std::ostream& err) {
  // Without --db the default database, which every command without a data source reads.
  const std::string databasePath = global.databasePath.value_or(defaultDatabasePath());
  if (!global.databasePath) {
    std::error_code problem;
    std::filesystem::create_directories(std::filesystem::path(databasePath).parent_path(), problem);
    if (problem) {
      err << "velk: import: cannot make the folder of " << databasePath << ": " << problem.message()
          << "\n";
      return kExitBadInput;
    }
  }
  ingest::ImportOptions options;
  if (global.sourcesPath) {
    auto rule = ingest::SourceIdentifierRule::fromMappingFile(*global.sourcesPath);
    if (rule.isFailure()) {
      err << "velk: --sources: " << rule.error().message() << "\n";
      return kExitBadInput;
    }
    options.sources = std::move(rule).value();
  }
  const InterruptsStopTheImport interrupts;
  options.stopRequested = &InterruptsStopTheImport::stopRequested;
  ProgressBar progress(err, ProgressBar::stderrIsTerminal());
  auto imported = ingest::importExport(
      exportPath, databasePath, options,
      [&progress](const ingest::ImportProgress& now) { progress.update(now); });
  progress.finish();
  if (imported.isFailure()) {
    err << "velk: import: " << imported.error().message() << "\n";
    if (InterruptsStopTheImport::stopRequested()) {
      err << "velk: import: " << databasePath << " is as it was before\n";
      return kExitInterrupted;
    }
    return kExitBadInput;
  }
  const ingest::ImportSummary& summary = imported.value();
  for (const auto& line : summary.report.warningLines()) {
    err << "velk: warning: " << exportPath << ": " << line << "\n";
  }
  if (summary.samplesWithoutUnit > 0) {
    err << "velk: warning: " << exportPath << ": " << summary.samplesWithoutUnit
        << " quantity records name no unit of their type and were left out\n";
  }
  out << nlohmann::json{{"database", databasePath},
                        {"export", summary.exportDescription},
                        {"samples", summary.samplesStored},
                        {"samples_without_unit", summary.samplesWithoutUnit},
                        {"characteristics", summary.characteristicsFound},
                        {"records_not_read", summary.report.unreadCategoryRecordsSkipped},
                        {"xml_bytes", summary.xmlBytes}}
             .dump()
      << "\n";
  return kExitSuccess;
}

}  // namespace velk::cli
