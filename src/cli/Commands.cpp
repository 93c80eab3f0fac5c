#include "cli/Commands.h"

#include <nlohmann/json.hpp>

#include <atomic>
#include <charconv>
#include <chrono>
#include <memory>
#include <mutex>

#include "cli/GlobalOptions.h"
#include "cli/Instant.h"
#include "cli/ProgressBar.h"
#include "cli/Tool.h"
#include "cli/ToolDevice.h"
#include "platform/DateFormatter.h"
#include "platform/HealthDatabase.h"
#include "velk/Calendar.h"
#include "velk/Device.h"
#include "velk/ExportImport.h"
#include "velk/VelkDataType.h"
#include "velk/VelkExtractionManager.h"
#include "velk/VelkPermissionExtraction.h"

namespace velk::cli {
namespace {

// How long the tool waits for one answer of the library. A request whose reader was released
// never answers; everything else answers in far less.
constexpr std::chrono::seconds kAnswerTimeout{120};

// One answer of the library, which may arrive on the store's queue or on the main queue.
template <class Value>
class Answer {
 public:
  void set(Value value) {
    std::lock_guard lock(mutex_);
    value_ = std::move(value);
    arrived_ = true;
  }
  /// Drives the main queue until the answer is there; false on timeout.
  bool await() {
    auto mainQueue = platform::Device::current()->mainQueue();
    return mainQueue->runUntil([this] { return arrived_.load(); }, kAnswerTimeout);
  }
  Value take() {
    std::lock_guard lock(mutex_);
    return std::move(*value_);
  }

 private:
  std::mutex mutex_;
  std::atomic<bool> arrived_{false};
  std::optional<Value> value_;
};

struct DictionaryAnswer {
  std::optional<nlohmann::json> dictionary;
  std::optional<Error> error;
};

enum class Kind { sleep, physical, body };

std::vector<Kind> expandKinds(const std::vector<std::string>& names) {
  std::vector<Kind> kinds;
  for (const auto& name : names) {
    if (name == "all") {
      kinds.insert(kinds.end(), {Kind::sleep, Kind::physical, Kind::body});
    } else if (name == "sleep") {
      kinds.push_back(Kind::sleep);
    } else if (name == "physical") {
      kinds.push_back(Kind::physical);
    } else {
      kinds.push_back(Kind::body);
    }
  }
  return kinds;
}

// Asks the manager for one day's documents in their dictionary form, every kind at once as a host
// asks, and prints them on one line each in the order asked. Returns the exit status:
// kExitErrorResult when the library answered with an error (printed as an error result),
// kExitFailure when it gave no answer in time.
int printDay(VelkExtractionManager& manager, const std::vector<Kind>& kinds, Date date,
             std::ostream& out, std::ostream& err) {
  std::vector<std::shared_ptr<Answer<DictionaryAnswer>>> answers;
  for (const Kind kind : kinds) {
    auto answer = std::make_shared<Answer<DictionaryAnswer>>();
    auto completion = [answer](std::optional<nlohmann::json> dictionary,
                               std::optional<Error> error) {
      answer->set({std::move(dictionary), std::move(error)});
    };
    switch (kind) {
      case Kind::sleep:
        manager.getSleepSummayObjc(date, completion);
        break;
      case Kind::physical:
        manager.getPhysicalSummaryObjc(date, completion);
        break;
      case Kind::body:
        manager.getBodySummaryObjc(date, completion);
        break;
    }
    answers.push_back(std::move(answer));
  }
  int status = kExitSuccess;
  for (const auto& answer : answers) {
    if (!answer->await()) {
      err << "velk: the library gave no answer within " << kAnswerTimeout.count() << " s\n";
      return kExitFailure;
    }
    const DictionaryAnswer result = answer->take();
    if (result.error) {
      printErrorResult(*result.error, out);
      status = kExitErrorResult;
      continue;
    }
    out << result.dictionary.value_or(nlohmann::json::object()).dump() << "\n";
  }
  return status;
}

// The moments at which the days of a range are asked: the local time `at` on every day from the
// day of `from` to the day of `to`, both included.
Result<std::vector<Date>> rangeMoments(const SummaryRequest& request,
                                       const platform::Calendar& calendar) {
  using Moments = Result<std::vector<Date>>;
  const auto first = parseInstant(*request.from, calendar);
  const auto last = parseInstant(*request.to, calendar);
  if (!first) {
    return Moments::failure(inputError("--from: \"" + *request.from + "\" is not a date"));
  }
  if (!last) {
    return Moments::failure(inputError("--to: \"" + *request.to + "\" is not a date"));
  }
  int hour = -1;
  int minute = -1;
  const std::string& at = request.at;
  const char* end = at.data() + at.size();
  auto [afterHour, hourProblem] = std::from_chars(at.data(), end, hour);
  if (hourProblem == std::errc() && afterHour != end && *afterHour == ':') {
    auto [afterMinute, minuteProblem] = std::from_chars(afterHour + 1, end, minute);
    if (minuteProblem != std::errc() || afterMinute != end) {
      minute = -1;
    }
  }
  if (hour < 0 || hour > 23 || minute < 0 || minute > 59) {
    return Moments::failure(inputError("--at: \"" + at + "\" is not a time of day HH:MM"));
  }
  auto day = calendar.components(*first);
  const auto lastDay = calendar.components(*last);
  day.hour = hour;
  day.minute = minute;
  day.second = 0;
  day.nanosecond.reset();
  std::vector<Date> moments;
  // Days are counted on the calendar (lenient day numbers roll over into the next month), so a
  // range across a DST change still asks every day at the same wall time.
  for (std::int64_t offset = 0;; ++offset) {
    auto components = day;
    components.day = *day.day + offset;
    const auto moment = calendar.date(components);
    if (!moment) {
      return Moments::failure(inputError("--from/--to: the calendar cannot name a day"));
    }
    const auto named = calendar.components(*moment);
    if (std::tie(*named.year, *named.month, *named.day) >
        std::tie(*lastDay.year, *lastDay.month, *lastDay.day)) {
      break;
    }
    moments.push_back(*moment);
  }
  if (moments.empty()) {
    return Moments::failure(inputError("--from is after --to"));
  }
  return Moments::success(std::move(moments));
}

}  // namespace

void printErrorResult(const Error& error, std::ostream& out) {
  nlohmann::json result = {
      {"error",
       {{"domain", error.domain()}, {"code", error.code()}, {"message", error.message()}}}};
  out << result.dump() << "\n";
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
    const auto moment = parseInstant(*request.date, calendar);
    if (!moment) {
      err << "velk: --date: \"" << *request.date << "\" is not an INSTANT\n";
      return kExitBadInput;
    }
    moments.push_back(*moment);
  } else {
    auto range = rangeMoments(request, calendar);
    if (range.isFailure()) {
      err << "velk: " << range.error().message() << "\n";
      return kExitBadInput;
    }
    moments = std::move(range).value();
  }

  // One manager for every day, as a host keeps one.
  VelkExtractionManager manager;
  int status = kExitSuccess;
  const auto kinds = expandKinds(request.kinds);
  for (const Date moment : moments) {
    const int day = printDay(manager, kinds, moment, out, err);
    if (day == kExitFailure) {
      return day;
    }
    status = std::max(status, day);
  }
  return status;
}

int runPermissions(const std::string& family, std::ostream& out, std::ostream& err) {
  VelkPermissionExtraction permissions;
  auto answer = std::make_shared<Answer<Result<bool>>>();
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
    err << "velk: the health store gave no answer within " << kAnswerTimeout.count() << " s\n";
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

int runImport(const std::string& exportPath, const GlobalOptions& global, std::ostream& out,
              std::ostream& err) {
  if (!global.databasePath) {
    err << "velk: import: give the database to write with --db FILE\n";
    return kExitBadInput;
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
  ProgressBar progress(err, ProgressBar::stderrIsTerminal());
  auto imported = ingest::importExport(
      exportPath, *global.databasePath, options,
      [&progress](const ingest::ImportProgress& now) { progress.update(now); });
  progress.finish();
  if (imported.isFailure()) {
    err << "velk: import: " << imported.error().message() << "\n";
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
  out << nlohmann::json{{"database", *global.databasePath},
                        {"export", summary.exportDescription},
                        {"samples", summary.samplesStored},
                        {"samples_without_unit", summary.samplesWithoutUnit},
                        {"characteristics", summary.characteristicsFound},
                        {"xml_bytes", summary.xmlBytes}}
             .dump()
      << "\n";
  return kExitSuccess;
}

}  // namespace velk::cli
