// The import database end to end, on a generated export of years of data:
//   - import throughput in MB/s of XML, from export.xml and from export.zip, each import in a
//     child process of its own so that its peak memory (bytes per stored sample) is its own;
//   - the same file read by a plain Python xml.etree.ElementTree.iterparse pass and by expat's
//     xmlwf, run in the same session, as yardsticks;
//   - the three documents of one day from the database, through VelkExtractionManager;
//   - every day of the export, three documents each, through one manager as a host reuses it.
// After the benchmarks a table gives the figures, the ratios and each target met or missed.
//
//   VELK_BENCH_IMPORT_DAYS  days of data (default 1000, about 580 MB of XML)
//   VELK_BENCH_EXPORT_DIR   where the export and the databases go (default the temporary folder)
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

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

// What one run measured, for the table at the end.
struct Figures {
  std::optional<double> xmlSeconds, zipSeconds, pythonSeconds, xmlwfSeconds;
  std::optional<double> peakBytes;
  std::uint64_t samples = 0;
  std::optional<double> oneDayMilliseconds, allDaysSeconds;
  std::uint64_t documents = 0;
  double importTicks = 0, importStealTicks = 0;  ///< the machine's, during the two imports
} figures;

struct ChildRun {
  bool ok = false;
  double seconds = 0;
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
  run.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  run.peakBytes = static_cast<double>(usage.ru_maxrss) * 1024.0;  // Linux reports KiB
  return run;
}

void importFrom(benchmark::State& state, const fs::path& path, std::optional<double>& seconds) {
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
    state.SetIterationTime(run.seconds);
    seconds = run.seconds;
    if (path == generatedExport().xml) {
      figures.peakBytes = run.peakBytes;
    }
  }
  const auto opened = velk::ingest::ImportedHealthDatabase::open(databasePath());
  figures.samples = opened.isSuccess() ? opened.value()->sampleCount() : 0;
  state.counters["MB/s_xml"] = generatedExport().megabytes / *seconds;
  state.counters["samples"] = static_cast<double>(figures.samples);
}

void BM_ImportXml(benchmark::State& state) {
  importFrom(state, generatedExport().xml, figures.xmlSeconds);
  if (figures.peakBytes && figures.samples > 0) {
    state.counters["peak_MiB"] = *figures.peakBytes / 1048576.0;
    state.counters["bytes/sample"] = *figures.peakBytes / static_cast<double>(figures.samples);
  }
}
BENCHMARK(BM_ImportXml)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

void BM_ImportZip(benchmark::State& state) {
  importFrom(state, generatedExport().zip, figures.zipSeconds);
}
BENCHMARK(BM_ImportZip)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

void runCommand(benchmark::State& state, const std::string& command,
                std::optional<double>& seconds) {
  for (auto _ : state) {
    const auto start = Clock::now();
    const int status = std::system(command.c_str());
    seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (status != 0) {
      state.SkipWithError(("failed: " + command).c_str());
      seconds.reset();
      return;
    }
    state.SetIterationTime(*seconds);
  }
  state.counters["MB/s_xml"] = generatedExport().megabytes / *seconds;
}

// The plain Python pass: every element parsed and dropped, nothing kept.
void BM_PythonIterparse(benchmark::State& state) {
  runCommand(state,
             "python3 -c 'import sys, xml.etree.ElementTree as ET\n"
             "for _, element in ET.iterparse(sys.argv[1]): element.clear()' '" +
                 generatedExport().xml.string() + "'",
             figures.pythonSeconds);
}
BENCHMARK(BM_PythonIterparse)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

void BM_Xmlwf(benchmark::State& state) {
  runCommand(state, "xmlwf '" + generatedExport().xml.string() + "' > /dev/null",
             figures.xmlwfSeconds);
}
BENCHMARK(BM_Xmlwf)->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);

// A device over the imported database, in the generator's zone (UTC+1, no clock changes).
class DatabaseDevice {
 public:
  DatabaseDevice() {
    auto opened = velk::ingest::ImportedHealthDatabase::open(databasePath());
    if (opened.isFailure()) {
      return;
    }
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

  /// Asks for the three documents of `date` and runs the main queue until all three are in.
  bool threeDocuments(velk::Date date) {
    auto done = std::make_shared<std::atomic<int>>(0);
    auto failed = std::make_shared<std::atomic<int>>(0);
    manager_->getSleepSummay(date, [done, failed](auto result) {
      *failed += result.isFailure();
      ++*done;
    });
    manager_->getPhysicalSummary(date, [done, failed](auto result) {
      *failed += result.isFailure();
      ++*done;
    });
    manager_->getBodySummary(date, [done, failed](auto result) {
      *failed += result.isFailure();
      ++*done;
    });
    const bool all =
        mainQueue_->runUntil([&done] { return done->load() == 3; }, std::chrono::seconds(30));
    return all && failed->load() == 0;
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

void BM_EveryDay(benchmark::State& state) {
  DatabaseDevice device;
  if (!device.ready()) {
    state.SkipWithError("no database (run BM_ImportXml first)");
    return;
  }
  for (auto _ : state) {
    const auto start = Clock::now();
    for (int day = 0; day < generatedExport().days; ++day) {
      if (!device.threeDocuments(DatabaseDevice::noonOf(day))) {
        state.SkipWithError("a document failed");
        return;
      }
    }
    figures.allDaysSeconds = std::chrono::duration<double>(Clock::now() - start).count();
    figures.documents = 3 * static_cast<std::uint64_t>(generatedExport().days);
  }
  state.counters["documents"] = static_cast<double>(figures.documents);
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

void line(const char* what, std::optional<double> value, const char* unit, const std::string& goal,
          std::optional<bool> met) {
  if (!value) {
    std::printf("  %-44s %12s\n", what, "not measured");
    return;
  }
  std::printf("  %-44s %12.2f %-6s %-22s %s\n", what, *value, unit, goal.c_str(),
              !met ? "" : (*met ? "met" : "MISSED"));
}

void printTable() {
  const double mb = generatedExport().megabytes;
  const auto rate = [mb](std::optional<double> seconds) -> std::optional<double> {
    return seconds ? std::optional(mb / *seconds) : std::nullopt;
  };
  const auto ratio = [](std::optional<double> a, std::optional<double> b) -> std::optional<double> {
    return a && b ? std::optional(*b / *a) : std::nullopt;
  };
  const auto xml = rate(figures.xmlSeconds);
  std::printf("\nImport of a %d-day export (%.0f MB of XML, %llu samples):\n",
              generatedExport().days, mb, static_cast<unsigned long long>(figures.samples));
  line("import export.xml, MB/s of XML", xml, "MB/s", ">= 400",
       xml ? std::optional(*xml >= 400) : std::nullopt);
  const auto zip = rate(figures.zipSeconds);
  line("import export.zip, MB/s of XML", zip, "MB/s", ">= 200",
       zip ? std::optional(*zip >= 200) : std::nullopt);
  line("python iterparse pass, MB/s", rate(figures.pythonSeconds), "MB/s", "", std::nullopt);
  line("xmlwf pass, MB/s", rate(figures.xmlwfSeconds), "MB/s", "", std::nullopt);
  const auto python = ratio(figures.xmlSeconds, figures.pythonSeconds);
  line("import / python iterparse", python, "x", ">= 7",
       python ? std::optional(*python >= 7) : std::nullopt);
  const auto xmlwf = ratio(figures.xmlSeconds, figures.xmlwfSeconds);
  line("import / xmlwf", xmlwf, "x", ">= 2.5", xmlwf ? std::optional(*xmlwf >= 2.5) : std::nullopt);
  if (figures.peakBytes && figures.samples > 0) {
    const double samples = static_cast<double>(figures.samples);
    const double limit = 100 * samples + 64.0 * 1048576;
    line("peak memory of the import, MiB", *figures.peakBytes / 1048576, "MiB",
         "<= " + std::to_string(static_cast<int>(limit / 1048576)) + " MiB",
         *figures.peakBytes <= limit);
    line("peak memory per stored sample", *figures.peakBytes / samples, "B", "", std::nullopt);
  }
  line("three documents of one day (median)", figures.oneDayMilliseconds, "ms", "<= 5",
       figures.oneDayMilliseconds ? std::optional(*figures.oneDayMilliseconds <= 5) : std::nullopt);
  line(("every day, " + std::to_string(figures.documents) + " documents").c_str(),
       figures.allDaysSeconds, "s", "<= 10",
       figures.allDaysSeconds ? std::optional(*figures.allDaysSeconds <= 10) : std::nullopt);
  if (figures.importTicks > 0) {
    const double steal = 100 * figures.importStealTicks / figures.importTicks;
    line("CPU time the host took during the imports", steal, "%", "", std::nullopt);
    if (steal > 5) {
      std::printf(
          "  The host of this virtual machine took %.0f%% of its CPUs during the imports: the\n"
          "  wall-clock rates above understate the import. Measure again when it steals none.\n",
          steal);
    }
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
