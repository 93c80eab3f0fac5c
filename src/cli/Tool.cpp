#include "cli/Tool.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>

#include "cli/Commands.h"
#include "cli/GlobalOptions.h"
#include "cli/TableCommands.h"
#include "cli/ToolDevice.h"

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
}

}  // namespace

int runTool(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
  CLI::App app("velk: daily sleep, physical and body summaries from health records", "velk");
  app.require_subcommand(1);
  app.fallthrough();  // global options may also follow the command
  GlobalOptions global;
  addGlobalOptions(app, global);

  auto* lastDate = app.add_subcommand("last-date", "Print the stored last extraction dates");

  SummaryRequest summary;
  auto* summaryCommand = app.add_subcommand("summary", "Print summary documents, one per line");
  summaryCommand->add_option("kind", summary.kinds, "sleep, physical, body or all")
      ->required()
      ->check(CLI::IsMember({"sleep", "physical", "body", "all"}));
  auto* date = summaryCommand->add_option("--date", summary.date, "The day, an INSTANT");
  auto* from = summaryCommand->add_option("--from", summary.from, "First day of a range");
  auto* to = summaryCommand->add_option("--to", summary.to, "Last day of a range");
  summaryCommand
      ->add_option("--at", summary.at, "Local time of day at which each day of a range is asked")
      ->capture_default_str();
  date->excludes(from)->excludes(to);
  from->needs(to);
  to->needs(from);

  std::string family;
  auto* permissions = app.add_subcommand("permissions", "Request read permissions");
  permissions->add_option("family", family, "all, sleep, physical or body")
      ->required()
      ->check(CLI::IsMember({"all", "sleep", "physical", "body"}));

  std::string exportToImport;
  auto* import = app.add_subcommand(
      "import", "Import an export into a database (--db FILE) for fast repeated extraction");
  import->add_option("export", exportToImport, "export.zip or its export XML")->required();

  TableRequest tableRequest;
  auto* table = app.add_subcommand("table", "Print one row per day (CSV or NDJSON)");
  table->add_option("kind", tableRequest.kinds, "sleep, physical, body or all")
      ->required()
      ->check(CLI::IsMember({"sleep", "physical", "body", "all"}));
  auto* report =
      app.add_subcommand("report", "Write an HTML report with charts of a range of days");
  report->add_option("-o,--output", tableRequest.output, "The HTML file to write")->required();
  for (auto* command : {table, report}) {
    command->add_option("--from", tableRequest.from, "First day")->required();
    command->add_option("--to", tableRequest.to, "Last day")->required();
    command->add_option("--at", tableRequest.at, "Local time of day at which each day is asked")
        ->capture_default_str();
  }
  table->add_option("--format", tableRequest.format, "csv or ndjson")
      ->capture_default_str()
      ->check(CLI::IsMember({"csv", "ndjson"}));

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
  if (summaryCommand->parsed() && !summary.date && !summary.from) {
    err << "velk: summary: give --date INSTANT, or --from DATE --to DATE\n";
    return kExitBadInput;
  }

  if (import->parsed()) {
    return runImport(exportToImport, global, out, err);
  }

  auto device = makeToolDevice(global, err);
  if (device.isFailure()) {
    err << "velk: " << device.error().message() << "\n";
    return kExitBadInput;
  }
  platform::DeviceScope scope(device.value());

  if (lastDate->parsed()) {
    return runLastDate(out);
  }
  if (summaryCommand->parsed()) {
    return runSummary(summary, out, err);
  }
  if (table->parsed()) {
    return runTable(tableRequest, out, err);
  }
  if (report->parsed()) {
    return runReport(tableRequest, out, err);
  }
  return runPermissions(family, out, err);
}

}  // namespace velk::cli
