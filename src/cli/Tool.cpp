#include "cli/Tool.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

#include "cli/Commands.h"
#include "cli/GlobalOptions.h"
#include "cli/InfoCommand.h"
#include "cli/TableCommands.h"
#include "cli/ToolDevice.h"
#include "velk/DebugOutput.h"

namespace velk::cli {
namespace {

void addGlobalOptions(CLI::App& app, GlobalOptions& options) {
  app.add_option("--tz", options.timeZone,
                 "The device's time zone (IANA name); default: the system's");
  app.add_option("--language", options.language,
                 "The device's first preferred language; default: from LANG, else en");
  app.add_option("--now", options.now, "The device's clock, an INSTANT; default: the system clock");
  app.add_option("--os-version", options.osVersion, "The device's OS version")
      ->capture_default_str();
  app.add_option("--state", options.statePath,
                 "The user-defaults database; default: " + defaultStatePath());
  app.add_option("--store", options.storePath, "Data source: a JSON store file");
  app.add_option("--export", options.exportPath, "Data source: export.zip or its export XML");
  app.add_option("--db", options.databasePath, "Data source: a database made by `velk import`");
  app.add_option("--sources", options.sourcesPath,
                 "With --export: a JSON file mapping source names to bundle identifiers");
  app.add_option("--source-priority", options.sourcePriority,
                 "Bundle identifiers in the order their overlapping samples are trusted in day "
                 "sums, most trusted first (comma-separated)")
      ->delimiter(',');
  app.add_flag("-v,--verbose", options.verbose,
               "Print the library's debug output on stderr (also with VELK_DEBUG=1)");
}

// The library's debug output of a run, one line per distinct line with its count: a store
// without weight samples says so for every day of a range, which is one fact, not a thousand.
void printDebugOutput(const std::string& text, std::ostream& err) {
  std::vector<std::pair<std::string, int>> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    auto seen = std::find_if(lines.begin(), lines.end(),
                             [&line](const auto& each) { return each.first == line; });
    if (seen == lines.end()) {
      lines.emplace_back(line, 1);
    } else {
      ++seen->second;
    }
  }
  for (const auto& [line, count] : lines) {
    err << line << (count > 1 ? " (" + std::to_string(count) + " times)" : "") << "\n";
  }
}

bool debugRequestedByEnvironment() {
  const char* value = std::getenv("VELK_DEBUG");
  return value != nullptr && std::string_view(value) == "1";
}

// Fills in the default database when no data source was given. Fails with the message for the
// user when there is none, so that no command answers from an empty store by mistake.
std::optional<std::string> useDefaultDatabase(GlobalOptions& global) {
  if (global.hasDataSource()) {
    return std::nullopt;
  }
  std::string fallback = defaultDatabasePath();
  std::error_code ignored;
  if (!std::filesystem::exists(fallback, ignored)) {
    return "no health data: run `velk import EXPORT` or give --export, --db or --store";
  }
  global.databasePath = std::move(fallback);
  return std::nullopt;
}

// The commands' arguments as parsed, and which command was given.
struct Requests {
  SummaryRequest summary;
  TableRequest table;
  std::string family;
  std::string exportToImport;
  std::string infoFormat = "json";

  CLI::App* lastDate = nullptr;
  CLI::App* summaryCommand = nullptr;
  CLI::App* permissions = nullptr;
  CLI::App* import = nullptr;
  CLI::App* info = nullptr;
  CLI::App* tableCommand = nullptr;
  CLI::App* report = nullptr;
};

void addSummaryCommand(CLI::App& app, Requests& requests) {
  SummaryRequest& summary = requests.summary;
  auto* command = app.add_subcommand("summary", "Print summary documents, one per line");
  command->add_option("kind", summary.kinds, "sleep, physical, body or all")
      ->required()
      ->check(CLI::IsMember({"sleep", "physical", "body", "all"}));
  auto* date = command->add_option("--date", summary.date, "The day, an INSTANT");
  auto* from = command->add_option("--from", summary.from, "First day of a range");
  auto* to = command->add_option("--to", summary.to, "Last day of a range");
  command->add_option("--at", summary.at, "Local time of day at which each day of a range is asked")
      ->capture_default_str();
  auto* bare = command->add_flag(
      "--bare", summary.bare,
      "With --from/--to: print the documents alone, without the envelope naming day and kind");
  date->excludes(from)->excludes(to);
  bare->needs(from);
  from->needs(to);
  to->needs(from);
  requests.summaryCommand = command;
}

void addTableCommands(CLI::App& app, Requests& requests) {
  TableRequest& request = requests.table;
  auto* table = app.add_subcommand("table", "Print one row per day (CSV or NDJSON)");
  table->add_option("kind", request.kinds, "sleep, physical, body or all")
      ->required()
      ->check(CLI::IsMember({"sleep", "physical", "body", "all"}));
  auto* report =
      app.add_subcommand("report", "Write an HTML report with charts of a range of days");
  report->add_option("-o,--output", request.output, "The HTML file to write")->required();
  for (auto* command : {table, report}) {
    command->add_option("--from", request.from, "First day")->required();
    command->add_option("--to", request.to, "Last day")->required();
    command->add_option("--at", request.at, "Local time of day at which each day is asked")
        ->capture_default_str();
  }
  table->add_option("--format", request.format, "csv or ndjson")
      ->capture_default_str()
      ->check(CLI::IsMember({"csv", "ndjson"}));
  requests.tableCommand = table;
  requests.report = report;
}

void addCommands(CLI::App& app, Requests& requests) {
  requests.lastDate = app.add_subcommand("last-date", "Print the stored last extraction dates");
  addSummaryCommand(app, requests);
  requests.permissions = app.add_subcommand("permissions", "Request read permissions");
  requests.permissions->add_option("family", requests.family, "all, sleep, physical or body")
      ->required()
      ->check(CLI::IsMember({"all", "sleep", "physical", "body"}));
  requests.import = app.add_subcommand(
      "import",
      "Import an export into the default database (or --db FILE) for fast repeated extraction");
  requests.import->add_option("export", requests.exportToImport, "export.zip or its export XML")
      ->required();
  requests.info = app.add_subcommand(
      "info",
      "Describe the data: period, types, sources, characteristics, what the rules leave out");
  requests.info->add_option("--format", requests.infoFormat, "json or text")
      ->capture_default_str()
      ->check(CLI::IsMember({"json", "text"}));
  addTableCommands(app, requests);
}

// Parses the arguments; an exit status when the run ends here (help, or bad arguments).
std::optional<int> parseArguments(CLI::App& app, const Requests& requests,
                                  const std::vector<std::string>& arguments, std::ostream& out,
                                  std::ostream& err) {
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
  try {
    app.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    out << app.help();
    return kExitSuccess;
  } catch (const CLI::CallForAllHelp&) {
    out << app.help("", CLI::AppFormatMode::All);
    return kExitSuccess;
  } catch (const CLI::ParseError& problem) {
    err << "velk: " << problem.what() << "\n";
    err << "Run velk --help for usage.\n";
    return kExitBadInput;
  }
  if (requests.summaryCommand->parsed() && !requests.summary.date && !requests.summary.from) {
    err << "velk: summary: give --date INSTANT, or --from DATE --to DATE\n";
    return kExitBadInput;
  }
  return std::nullopt;
}

// Makes the device the data options describe; an exit status when it cannot be made.
std::optional<int> checkDataOptions(const Requests& requests, GlobalOptions& global,
                                    std::ostream& err) {
  // The stored dates need no health data; every other command reads it.
  if (!requests.lastDate->parsed()) {
    if (auto missing = useDefaultDatabase(global)) {
      err << "velk: " << *missing << "\n";
      return kExitBadInput;
    }
  }
  if (global.sourcesPath && !global.exportPath) {
    err << "velk: --sources applies where an export is read: give it to `velk import` (a "
           "database keeps the identifiers it was imported with) or use --export\n";
    return kExitBadInput;
  }
  return std::nullopt;
}

int runCommand(const Requests& requests, GlobalOptions& global, std::ostream& out,
               std::ostream& err) {
  if (requests.import->parsed()) {
    return runImport(requests.exportToImport, global, out, err);
  }
  if (auto refused = checkDataOptions(requests, global, err)) {
    return *refused;
  }
  auto device = makeToolDevice(global, err);
  if (device.isFailure()) {
    err << "velk: " << device.error().message() << "\n";
    return kExitBadInput;
  }
  platform::DeviceScope scope(device.value());
  if (requests.lastDate->parsed()) {
    return runLastDate(out);
  }
  if (requests.summaryCommand->parsed()) {
    return runSummary(requests.summary, out, err);
  }
  if (requests.tableCommand->parsed()) {
    return runTable(requests.table, out, err);
  }
  if (requests.report->parsed()) {
    return runReport(requests.table, out, err);
  }
  if (requests.info->parsed()) {
    return runInfo(requests.infoFormat, out, err);
  }
  return runPermissions(requests.family, out, err);
}

}  // namespace

int runTool(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
  CLI::App app("velk: daily sleep, physical and body summaries from health records", "velk");
  app.require_subcommand(1);
  app.fallthrough();  // global options may also follow the command
  GlobalOptions global;
  addGlobalOptions(app, global);
  Requests requests;
  addCommands(app, requests);
  if (auto status = parseArguments(app, requests, arguments, out, err)) {
    return *status;
  }
  global.verbose = global.verbose || debugRequestedByEnvironment();

  // The library's debug output (a day without HRV samples says so) reads like failures to
  // people: it is collected for the whole run and shown only when asked for, after the
  // command's own messages and progress line.
  platform::DebugOutputCapture debugOutput;
  const int status = runCommand(requests, global, out, err);
  if (global.verbose) {
    printDebugOutput(debugOutput.text(), err);
  }
  return status;
}

}  // namespace velk::cli
