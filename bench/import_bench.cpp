// The import database end to end, on a generated export of years of data:
//   - import throughput in MB/s of XML, from export.xml and from export.zip, each import in a
//     child process of its own so that its peak memory (bytes per stored sample) is its own;
//   - the same file read by a plain Python xml.etree.ElementTree.iterparse pass and by expat's
//     xmlwf, run in the same session, as yardsticks;
//   - the three documents of one day from the database, through VelkExtractionManager;
//   - every day of the export, three documents each in their dictionary form as `velk summary all
//     --from --to` prints them, through one manager as a host reuses it, held to a share of the
//     Python pass; its bytes are compared with those of a run whose store computes every answer
//     on its callback queue alone (VELK_QUERY_HELPERS=0), as before the query workers.
// After the benchmarks a table gives the figures, the ratios and each goal met or missed, with
// the CPU seconds beside the wall-clock ones (the fair comparison while others share the cores).
// Goals are listed in one function per group (importGoals, extractionGoals): add a group there.
//
//   VELK_BENCH_IMPORT_DAYS  days of data (default 1000, about 580 MB of XML)
//   VELK_BENCH_EXPORT_DIR   where the export and the databases go (default the temporary folder)
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "ExportGenerator.h"
#include "ingest/ImportedHealthDatabase.h"
#include "platform/UserDefaults.h"
#include "velk/BodyDocument.h"
#include "velk/Device.h"
#include "velk/DispatchQueue.h"
#include "velk/ExportImport.h"
#include "velk/PhysicalDocument.h"
#include "velk/SleepDocument.h"
#include "velk/VelkExtractionManager.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct GeneratedExport {
  fs::path folder;
  fs::path xml;
  fs::path zip;
  double megabytes = 0;
  int days = 0;
  std::int64_t firstDay = 0;  // days since 1970-01-01
};

const GeneratedExport& generatedExport() {
  static const GeneratedExport generated = [] {
    const char* dir = std::getenv("VELK_BENCH_EXPORT_DIR");
    const char* days = std::getenv("VELK_BENCH_IMPORT_DAYS");
    velk::bench::ExportShape shape;
    shape.days = days != nullptr ? std::atoi(days) : 1000;
    GeneratedExport result;
    result.folder = dir != nullptr ? fs::path(dir) : fs::temp_directory_path();
    result.days = shape.days;
    result.firstDay = shape.firstDay;
    result.xml = result.folder / ("velk-bench-export-" + std::to_string(shape.days) + ".xml");
    result.zip = result.folder / ("velk-bench-export-" + std::to_string(shape.days) + ".zip");
    // The generator is deterministic: a file from an earlier run is the same file.
    if (!fs::exists(result.xml)) {
      std::FILE* out = std::fopen(result.xml.c_str(), "wb");
      velk::bench::ExportGenerator(shape).write(out);
      std::fclose(out);
    }
    if (!fs::exists(result.zip) &&
        !velk::bench::writeExportArchive(result.xml.c_str(), result.zip.c_str())) {
      result.zip.clear();
    }
    result.megabytes = static_cast<double>(fs::file_size(result.xml)) / 1e6;
    return result;
  }();
  return generated;
}

fs::path databasePath() {
  return generatedExport().folder / "velk-bench-import.db";
}

// The CPU time of the whole machine so far, from /proc/stat, in clock ticks: all of it, and
// the "steal" that a virtual machine's host took for others. Wall-clock figures taken while the
// host steals are not the import's.
struct MachineTicks {
  double total = 0;
  double steal = 0;
};

MachineTicks machineTicks() {
  MachineTicks ticks;
  std::FILE* stat = std::fopen("/proc/stat", "r");
  if (stat == nullptr) {
    return ticks;
  }
  // "cpu  user nice system idle iowait irq softirq steal ..."
  unsigned long long fields[8] = {};
  if (std::fscanf(stat, "cpu %llu %llu %llu %llu %llu %llu %llu %llu", &fields[0], &fields[1],
                  &fields[2], &fields[3], &fields[4], &fields[5], &fields[6], &fields[7]) == 8) {
    for (const auto field : fields) {
      ticks.total += static_cast<double>(field);
    }
    ticks.steal = static_cast<double>(fields[7]);
  }
  std::fclose(stat);
  return ticks;
}

// Wall-clock and CPU seconds (user + system) of one timed run.
struct Timing {
  double wall = 0;
  double cpu = 0;
};

// What one run measured, for the table at the end.
struct Figures {
  std::vector<Timing> xmlImports;  ///< every import of export.xml; the table takes the median
  std::optional<Timing> zipImport, python, xmlwf;
  std::optional<double> peakBytes;  ///< the largest of the export.xml imports
  std::uint64_t samples = 0;
  std::optional<double> oneDayMilliseconds;
  std::optional<Timing> allDays;         ///< wall and CPU seconds of this process
  std::optional<bool> allDaysSameBytes;  ///< against the run without query workers
  std::uint64_t documents = 0;
  double importTicks = 0, importStealTicks = 0;  ///< the machine's, during the imports
} figures;

double cpuSeconds(const rusage& usage) {
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double childrenCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  return cpuSeconds(usage);
}

struct ChildRun {
  bool ok = false;
  Timing timing;
  double peakBytes = 0;
};

// Runs `work` in a child process; its exit status says whether it worked.
template <class Work>
ChildRun inChild(Work work) {
  const auto start = Clock::now();
  const pid_t child = fork();
  if (child == 0) {
    _exit(work() ? 0 : 1);
  }
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  ChildRun run;
  run.timing.wall = std::chrono::duration<double>(Clock::now() - start).count();
  run.timing.cpu = cpuSeconds(usage);
  run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  run.peakBytes = static_cast<double>(usage.ru_maxrss) * 1024.0;  // Linux reports KiB
  return run;
}

// Imports `path` into the benchmark's database in a child process, once per iteration.
void importFrom(benchmark::State& state, const fs::path& path, std::vector<Timing>& timings) {
  if (path.empty()) {
    state.SkipWithError("no export archive");
    return;
  }
  for (auto _ : state) {
    const auto ticksBefore = machineTicks();
    const ChildRun run = inChild([&path] {
      const auto summary = velk::ingest::importExport(path, databasePath());
      return summary.isSuccess() && !summary.value().report.hasWarnings();
    });
    const auto ticksAfter = machineTicks();
    figures.importTicks += ticksAfter.total - ticksBefore.total;
    figures.importStealTicks += ticksAfter.steal - ticksBefore.steal;
    if (!run.ok) {
      state.SkipWithError("the import failed");
      return;
    }
    state.SetIterationTime(run.timing.wall);
    timings.push_back(run.timing);
    if (path == generatedExport().xml) {
      figures.peakBytes = std::max(figures.peakBytes.value_or(0), run.peakBytes);
    }
  }
  const auto opened = velk::ingest::ImportedHealthDatabase::open(databasePath());
  figures.samples = opened.isSuccess() ? opened.value()->sampleCount() : 0;
  state.counters["MB/s_xml"] = generatedExport().megabytes / timings.back().wall;
  state.counters["samples"] = static_cast<double>(figures.samples);
}

// The run of median wall-clock time.
std::optional<Timing> median(std::vector<Timing> timings) {
  if (timings.empty()) {
    return std::nullopt;
  }
  const auto middle = timings.begin() + static_cast<std::ptrdiff_t>(timings.size() / 2);
  std::nth_element(timings.begin(), middle, timings.end(),
                   [](const Timing& a, const Timing& b) { return a.wall < b.wall; });
  return *middle;
}

void BM_ImportXml(benchmark::State& state) {
  importFrom(state, generatedExport().xml, figures.xmlImports);
  if (figures.peakBytes && figures.samples > 0) {
    state.counters["peak_MiB"] = *figures.peakBytes / 1048576.0;
    state.counters["bytes/sample"] = *figures.peakBytes / static_cast<double>(figures.samples);
  }
}
// Five imports: the table takes the median, as the machine's speed drifts from run to run.
BENCHMARK(BM_ImportXml)->Iterations(5)->UseManualTime()->Unit(benchmark::kSecond);

void BM_ImportZip(benchmark::State& state) {
  std::vector<Timing> timings;
  importFrom(state, generatedExport().zip, timings);
  figures.zipImport = median(timings);
}
BENCHMARK(BM_ImportZip)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

void runCommand(benchmark::State& state, const std::string& command,
                std::optional<Timing>& timing) {
  for (auto _ : state) {
    const auto cpuBefore = childrenCpuSeconds();
    const auto start = Clock::now();
    const int status = std::system(command.c_str());
    timing = Timing{std::chrono::duration<double>(Clock::now() - start).count(),
                    childrenCpuSeconds() - cpuBefore};
    if (status != 0) {
      state.SkipWithError(("failed: " + command).c_str());
      timing.reset();
      return;
    }
    state.SetIterationTime(timing->wall);
  }
  state.counters["MB/s_xml"] = generatedExport().megabytes / timing->wall;
}

// The plain Python pass: every element parsed and dropped, nothing kept.
void BM_PythonIterparse(benchmark::State& state) {
  runCommand(state,
             "python3 -c 'import sys, xml.etree.ElementTree as ET\n"
             "for _, element in ET.iterparse(sys.argv[1]): element.clear()' '" +
                 generatedExport().xml.string() + "'",
             figures.python);
}
BENCHMARK(BM_PythonIterparse)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

void BM_Xmlwf(benchmark::State& state) {
  runCommand(state, "xmlwf '" + generatedExport().xml.string() + "' > /dev/null", figures.xmlwf);
}
BENCHMARK(BM_Xmlwf)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

double ownCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return cpuSeconds(usage);
}

// A device over the imported database, in the generator's zone (UTC+1, no clock changes).
// `queryHelpers` overrides the store's helper count (VELK_QUERY_HELPERS) for this database.
class DatabaseDevice {
 public:
  explicit DatabaseDevice(std::optional<int> queryHelpers = std::nullopt) {
    if (queryHelpers) {
      setenv("VELK_QUERY_HELPERS", std::to_string(*queryHelpers).c_str(), 1);
    }
    auto opened = velk::ingest::ImportedHealthDatabase::open(databasePath());
    if (opened.isFailure()) {
      return;
    }
    opened.value()->queryWorkers();  // made now, while the variable holds
    unsetenv("VELK_QUERY_HELPERS");
    velk::platform::DeviceSettings settings;
    settings.timeZone = "Etc/GMT-1";
    mainQueue_ = std::make_shared<velk::platform::MainQueue>();
    scope_.emplace(std::make_shared<velk::platform::Device>(
        settings, opened.value(), velk::platform::UserDefaults::inMemory(), mainQueue_));
    manager_.emplace();
  }
  bool ready() const { return manager_.has_value(); }

  /// Noon, local time, of day `index` of the export.
  static velk::Date noonOf(int index) {
    const auto day = generatedExport().firstDay + index;
    return velk::Date::fromUnixSeconds(static_cast<double>(day * 86400 + 11 * 3600));
  }

  /// Asks for the three documents of `date` and runs the main queue until all three are in. Each
  /// completion moves to the main queue first, as a host's does (the sleep one arrives on the
  /// store's queue).
  bool threeDocuments(velk::Date date) {
    auto done = std::make_shared<int>(0);
    auto failed = std::make_shared<int>(0);
    const auto arrived = [this, done, failed](bool failure) {
      mainQueue_->async([done, failed, failure] {
        *failed += failure;
        ++*done;
      });
    };
    manager_->getSleepSummay(date, [arrived](auto result) { arrived(result.isFailure()); });
    manager_->getPhysicalSummary(date, [arrived](auto result) { arrived(result.isFailure()); });
    manager_->getBodySummary(date, [arrived](auto result) { arrived(result.isFailure()); });
    const bool all = mainQueue_->runUntil([&done] { return *done == 3; }, std::chrono::seconds(30));
    return all && *failed == 0;
  }

  /// The three documents of `date` in their dictionary form, one JSON line each (sleep, physical,
  /// body), appended to `out` as `velk summary all` prints them; false when one failed.
  bool threeDictionaries(velk::Date date, std::string& out) {
    std::array<std::optional<nlohmann::json>, 3> dictionaries;
    auto done = std::make_shared<int>(0);
    const auto into = [this, done, &dictionaries](std::size_t slot) {
      return [this, done, &dictionaries, slot](std::optional<nlohmann::json> dictionary,
                                               std::optional<velk::Error> error) {
        mainQueue_->async([done, &dictionaries, slot, dictionary = std::move(dictionary),
                           failed = error.has_value()]() mutable {
          if (!failed) {
            dictionaries[slot] = std::move(dictionary).value_or(nlohmann::json::object());
          }
          ++*done;
        });
      };
    };
    manager_->getSleepSummayObjc(date, into(0));
    manager_->getPhysicalSummaryObjc(date, into(1));
    manager_->getBodySummaryObjc(date, into(2));
    if (!mainQueue_->runUntil([&done] { return *done == 3; }, std::chrono::seconds(30))) {
      return false;
    }
    for (const auto& dictionary : dictionaries) {
      if (!dictionary) {
        return false;
      }
      out += dictionary->dump();
      out += '\n';
    }
    return true;
  }

  /// Every day of the export through this device's one manager, as threeDictionaries writes them.
  std::optional<std::string> everyDay() {
    std::string out;
    for (int day = 0; day < generatedExport().days; ++day) {
      if (!threeDictionaries(noonOf(day), out)) {
        return std::nullopt;
      }
    }
    return out;
  }

 private:
  std::shared_ptr<velk::platform::MainQueue> mainQueue_;
  std::optional<velk::platform::DeviceScope> scope_;
  std::optional<velk::VelkExtractionManager> manager_;
};

void BM_OneDayDocuments(benchmark::State& state) {
  DatabaseDevice device;
  if (!device.ready()) {
    state.SkipWithError("no database (run BM_ImportXml first)");
    return;
  }
  int day = generatedExport().days / 2;
  for (auto _ : state) {
    if (!device.threeDocuments(DatabaseDevice::noonOf(day))) {
      state.SkipWithError("a document failed");
      return;
    }
    day = (day + 37) % generatedExport().days;  // a different day each time, no warm answers
  }
}
BENCHMARK(BM_OneDayDocuments)->Unit(benchmark::kMillisecond)->UseRealTime();

// Every day through one manager, then again with the store's answers all computed on its
// callback queue (no query workers), whose bytes the first run must repeat exactly.
void BM_EveryDay(benchmark::State& state) {
  DatabaseDevice device;
  if (!device.ready()) {
    state.SkipWithError("no database (run BM_ImportXml first)");
    return;
  }
  std::optional<std::string> documents;
  for (auto _ : state) {
    const auto start = Clock::now();
    const double cpuBefore = ownCpuSeconds();
    documents = device.everyDay();
    figures.allDays = Timing{std::chrono::duration<double>(Clock::now() - start).count(),
                             ownCpuSeconds() - cpuBefore};
    if (!documents) {
      state.SkipWithError("a document failed");
      return;
    }
    figures.documents = 3 * static_cast<std::uint64_t>(generatedExport().days);
  }
  state.counters["documents"] = static_cast<double>(figures.documents);
  const auto reference = DatabaseDevice(0).everyDay();
  figures.allDaysSameBytes = reference && *reference == *documents;
}
BENCHMARK(BM_EveryDay)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

// The one-day figure, measured again for the table: the median of 101 days.
void measureOneDay() {
  DatabaseDevice device;
  if (!device.ready()) {
    return;
  }
  std::vector<double> times;
  for (int i = 0; i < 101; ++i) {
    const auto start = Clock::now();
    if (!device.threeDocuments(DatabaseDevice::noonOf((i * 37) % generatedExport().days))) {
      return;
    }
    times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  }
  std::nth_element(times.begin(), times.begin() + 50, times.end());
  figures.oneDayMilliseconds = times[50];
}

// One line of the table: a figure, and the goal it is held to (none for a yardstick).
struct Goal {
  std::string what;
  std::optional<double> value;
  std::string unit;
  std::string target;       ///< e.g. ">= 15"; empty for a figure without a goal
  std::optional<bool> met;  ///< empty when there is no goal or no figure
};

Goal figure(std::string what, std::optional<double> value, std::string unit) {
  return Goal{std::move(what), value, std::move(unit), "", std::nullopt};
}

Goal atLeast(std::string what, std::optional<double> value, std::string unit, double least) {
  const auto met = value ? std::optional(*value >= least) : std::nullopt;
  char target[32];
  std::snprintf(target, sizeof target, ">= %g", least);
  return Goal{std::move(what), value, std::move(unit), target, met};
}

Goal atMost(std::string what, std::optional<double> value, std::string unit, double most) {
  const auto met = value ? std::optional(*value <= most) : std::nullopt;
  char target[32];
  std::snprintf(target, sizeof target, "<= %g", most);
  return Goal{std::move(what), value, std::move(unit), target, met};
}

std::optional<double> ratio(std::optional<double> slower, std::optional<double> faster) {
  return slower && faster ? std::optional(*slower / *faster) : std::nullopt;
}

template <class Field>
std::optional<double> field(const std::optional<Timing>& timing, Field Timing::*member) {
  return timing ? std::optional(*timing.*member) : std::nullopt;
}

// The import of export.xml against the yardsticks on the same file, and its memory.
std::vector<Goal> importGoals() {
  const double mb = generatedExport().megabytes;
  const auto xml = median(figures.xmlImports);
  const auto rate = [mb](std::optional<double> seconds) -> std::optional<double> {
    return seconds ? std::optional(mb / *seconds) : std::nullopt;
  };
  std::vector<Goal> goals = {
      figure("import export.xml (median of 5), MB/s of XML", rate(field(xml, &Timing::wall)),
             "MB/s"),
      figure("  its CPU time (user + system)", field(xml, &Timing::cpu), "s"),
      figure("python iterparse pass, MB/s", rate(field(figures.python, &Timing::wall)), "MB/s"),
      figure("xmlwf pass, MB/s", rate(field(figures.xmlwf, &Timing::wall)), "MB/s"),
      atLeast("import / python iterparse",
              ratio(field(figures.python, &Timing::wall), field(xml, &Timing::wall)), "x", 15),
      atLeast("import / xmlwf",
              ratio(field(figures.xmlwf, &Timing::wall), field(xml, &Timing::wall)), "x", 8),
      figure("  the same in CPU time: / python iterparse",
             ratio(field(figures.python, &Timing::cpu), field(xml, &Timing::cpu)), "x"),
      figure("  the same in CPU time: / xmlwf",
             ratio(field(figures.xmlwf, &Timing::cpu), field(xml, &Timing::cpu)), "x"),
      atLeast("import export.zip, MB/s of XML", rate(field(figures.zipImport, &Timing::wall)),
              "MB/s", 200),
  };
  if (figures.peakBytes && figures.samples > 0) {
    const double samples = static_cast<double>(figures.samples);
    const double limit = (100 * samples + 64.0 * 1048576) / 1048576;
    goals.push_back(atMost("peak memory of the import", *figures.peakBytes / 1048576, "MiB",
                           std::floor(limit)));
    goals.push_back(figure("  per stored sample", *figures.peakBytes / samples, "B"));
  }
  return goals;
}

// Documents from the imported database.
std::vector<Goal> extractionGoals() {
  const std::string every = "every day, " + std::to_string(figures.documents) + " documents";
  std::vector<Goal> goals = {
      atMost("three documents of one day (median)", figures.oneDayMilliseconds, "ms", 1),
      figure(every, field(figures.allDays, &Timing::wall), "s"),
      figure("  its CPU time (user + system)", field(figures.allDays, &Timing::cpu), "s"),
      atMost("  / python iterparse pass",
             ratio(field(figures.allDays, &Timing::wall), field(figures.python, &Timing::wall)),
             "x", 0.16),
      figure("  the same in CPU time",
             ratio(field(figures.allDays, &Timing::cpu), field(figures.python, &Timing::cpu)), "x"),
  };
  if (figures.allDaysSameBytes) {
    goals.push_back(
        Goal{"  bytes as without query workers", 1.0, "", "same", *figures.allDaysSameBytes});
  }
  return goals;
}

void printGoal(const Goal& goal) {
  if (!goal.value) {
    std::printf("  %-46s %12s\n", goal.what.c_str(), "not measured");
    return;
  }
  std::printf("  %-46s %12.2f %-5s %-10s %s\n", goal.what.c_str(), *goal.value, goal.unit.c_str(),
              goal.target.c_str(), !goal.met ? "" : (*goal.met ? "met" : "MISSED"));
}

void printTable() {
  std::printf("\nImport of a %d-day export (%.0f MB of XML, %llu samples):\n",
              generatedExport().days, generatedExport().megabytes,
              static_cast<unsigned long long>(figures.samples));
  for (const auto& group : {importGoals(), extractionGoals()}) {
    for (const auto& goal : group) {
      printGoal(goal);
    }
  }
  if (figures.importTicks > 0) {
    const double steal = 100 * figures.importStealTicks / figures.importTicks;
    printGoal(figure("CPU time the host took during the imports", steal, "%"));
    if (steal > 5) {
      std::printf(
          "  The host of this virtual machine took %.0f%% of its CPUs during the imports: the\n"
          "  wall-clock rates above understate the import. Measure again when it steals none.\n",
          steal);
    }
  }
  double load[3] = {};
  if (getloadavg(load, 3) == 3) {
    std::printf(
        "  load average at the end: %.2f (other processes on the cores show in the\n"
        "  wall-clock figures; the CPU-time ratios stay comparable)\n",
        load[0]);
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  generatedExport();
  benchmark::RunSpecifiedBenchmarks();
  measureOneDay();
  printTable();
  benchmark::Shutdown();
  return 0;
}
