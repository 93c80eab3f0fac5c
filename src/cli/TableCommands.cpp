#include "cli/TableCommands.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <utility>

#include "cli/Commands.h"
#include "cli/Instant.h"
#include "cli/ProgressBar.h"
#include "cli/Tool.h"
#include "platform/HealthDatabase.h"
#include "report/DayReport.h"
#include "velk/Calendar.h"
#include "velk/DayTable.h"
#include "velk/DebugOutput.h"
#include "velk/Device.h"
#include "velk/TableFormats.h"

namespace velk::cli {
namespace {

// The table of `kinds` over the request's range, with the progress bar on a terminal. On failure
// the message or error result is printed and the exit status returned.
struct Built {
  std::optional<table::DayTable> table;
  int status = kExitSuccess;
};

Built buildTable(const TableRequest& request, const std::vector<VelkDataType>& kinds,
                 std::ostream& out, std::ostream& err) {
  auto range = parseDayRange(request.from, request.to, request.at, platform::Calendar::current());
  if (range.isFailure()) {
    err << "velk: " << range.error().message() << "\n";
    return {std::nullopt, kExitBadInput};
  }
  auto made = [&] {
    ProgressBar progress(err, ProgressBar::stderrIsTerminal());
    auto table =
        table::makeDayTable(range.value(), kinds, [&progress](std::size_t done, std::size_t total) {
          progress.updateDays(done, total);
          return true;
        });
    progress.finish();
    return table;
  }();
  // A table or report of a store that could not be read whole would show the missing data as
  // days without it: there is none rather than a wrong one.
  if (auto failed = platform::Device::current()->healthDatabase()->firstFailedRead()) {
    err << "velk: " << failed->message() << "\n";
    return {std::nullopt, kExitBadInput};
  }
  if (made.isSuccess()) {
    return {std::move(made).value(), kExitSuccess};
  }
  const Error& error = made.error();
  if (error.domain() == table::kTableErrorDomain) {
    const bool badRange = error.code() == static_cast<std::int64_t>(table::TableError::badRange);
    err << "velk: " << (badRange ? "--from/--to: " : "") << error.message() << "\n";
    return {std::nullopt, badRange ? kExitBadInput : kExitFailure};
  }
  printErrorResult(error, out);
  return {std::nullopt, kExitErrorResult};
}

}  // namespace

int runTable(const TableRequest& request, std::ostream& out, std::ostream& err) {
  const auto kinds = table::kindsFromNames(request.kinds);
  if (!kinds) {
    err << "velk: table: the kinds are sleep, physical, body or all\n";
    return kExitBadInput;
  }
  const Built built = buildTable(request, *kinds, out, err);
  if (!built.table) {
    return built.status;
  }
  if (request.format == "ndjson") {
    table::writeNdjson(*built.table, out);
  } else {
    table::writeCsv(*built.table, out);
  }
  return kExitSuccess;
}

int runReport(const TableRequest& request, std::ostream& out, std::ostream& err) {
  namespace fs = std::filesystem;
  const Built built = buildTable(request, *table::kindsFromNames({"all"}), out, err);
  if (!built.table) {
    return built.status;
  }
  // Written beside the target and renamed when whole, so a failed write leaves the file that was
  // there before.
  const fs::path target = request.output;
  fs::path partial = target;
  partial += ".partial";
  {
    std::ofstream file(partial, std::ios::binary | std::ios::trunc);
    report::writeReport(*built.table, platform::Device::current()->timeZone(), file);
    file.close();
    if (!file) {
      err << "velk: report: cannot write " << target.string()
          << " (its folder must exist and be writable)\n";
      std::error_code ignored;
      fs::remove(partial, ignored);
      return kExitBadInput;
    }
  }
  std::error_code renamed;
  fs::rename(partial, target, renamed);
  if (renamed) {
    err << "velk: report: cannot write " << target.string() << ": " << renamed.message() << "\n";
    std::error_code ignored;
    fs::remove(partial, ignored);
    return kExitBadInput;
  }
  out << nlohmann::json{{"report", target.string()},
                        {"days", built.table->rows.size()},
                        {"bytes", fs::file_size(target)}}
             .dump()
      << "\n";
  return kExitSuccess;
}

}  // namespace velk::cli
