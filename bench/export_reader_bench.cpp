// Read throughput of the export reader in MB/s of XML, beside expat's `xmlwf` and Python's
// `xml.etree.ElementTree.iterparse` over the same file. Every benchmark reports, besides the
// wall-clock rate, `MB_per_cpu_s`: megabytes per second of CPU time (user + system), which
// stays meaningful when other processes share the cores. The export is generated once per run:
//   VELK_BENCH_EXPORT_DAYS  days of data (default 20, about 12 MB; 0.6 MB per day)
//   VELK_BENCH_EXPORT_DIR   where to write it (default the system's temporary folder)
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "ExportGenerator.h"
#include "ingest/ExportReader.h"

namespace {

struct GeneratedExport {
  std::filesystem::path xml;
  std::filesystem::path zip;
  std::uint64_t bytes = 0;
};

int daysFromEnvironment() {
  const char* text = std::getenv("VELK_BENCH_EXPORT_DAYS");
  return text != nullptr ? std::atoi(text) : 20;
}

const GeneratedExport& generatedExport() {
  static const GeneratedExport generated = [] {
    const char* dir = std::getenv("VELK_BENCH_EXPORT_DIR");
    const std::filesystem::path folder =
        dir != nullptr ? std::filesystem::path(dir) : std::filesystem::temp_directory_path();
    velk::bench::ExportShape shape;
    shape.days = daysFromEnvironment();
    GeneratedExport result;
    result.xml = folder / ("velk-bench-export-" + std::to_string(shape.days) + ".xml");
    result.zip = folder / ("velk-bench-export-" + std::to_string(shape.days) + ".zip");
    // The generator is deterministic: a file from an earlier run is the same file.
    if (!std::filesystem::exists(result.xml)) {
      std::FILE* out = std::fopen(result.xml.c_str(), "wb");
      velk::bench::ExportGenerator(shape).write(out);
      std::fclose(out);
    }
    if (!std::filesystem::exists(result.zip) &&
        !velk::bench::writeExportArchive(result.xml.c_str(), result.zip.c_str())) {
      result.zip.clear();
    }
    result.bytes = std::filesystem::file_size(result.xml);
    return result;
  }();
  return generated;
}

double cpuSeconds(int who) {
  rusage usage{};
  getrusage(who, &usage);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void reportRates(benchmark::State& state, double cpu) {
  const auto bytes =
      static_cast<double>(state.iterations()) * static_cast<double>(generatedExport().bytes);
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
  state.counters["MB_per_cpu_s"] = cpu > 0 ? bytes / 1e6 / cpu : 0;
}

class CountingSink final : public velk::ingest::ExportSink {
 public:
  void characteristics(velk::platform::Characteristics) override {}
  void record(velk::platform::SampleRecord record) override {
    ++count;
    benchmark::DoNotOptimize(record.value);
  }
  void records(velk::ingest::ExportRecordBatch&& batch) override {
    count += batch.records.size();
    benchmark::DoNotOptimize(batch.records.data());
  }
  std::size_t count = 0;
};

void readExport(benchmark::State& state, const std::filesystem::path& path) {
  velk::ingest::ExportReadOptions options;
  options.threads = static_cast<unsigned>(state.range(0));
  const velk::ingest::ExportReader reader(options);
  std::size_t records = 0;
  const auto cpuBefore = cpuSeconds(RUSAGE_SELF);
  for (auto _ : state) {
    CountingSink sink;
    const auto report = reader.read(path, sink);
    if (report.isFailure() || report.value().hasWarnings()) {
      state.SkipWithError("the generated export did not read cleanly");
      return;
    }
    records = sink.count;
  }
  reportRates(state, cpuSeconds(RUSAGE_SELF) - cpuBefore);
  state.counters["records"] = static_cast<double>(records);
}

void BM_ExportReaderXml(benchmark::State& state) {
  readExport(state, generatedExport().xml);
}
BENCHMARK(BM_ExportReaderXml)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ExportReaderZip(benchmark::State& state) {
  if (generatedExport().zip.empty()) {
    state.SkipWithError("the export could not be packed into an archive");
    return;
  }
  readExport(state, generatedExport().zip);
}
BENCHMARK(BM_ExportReaderZip)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same file through expat's own command-line checker and through Python's streaming
// ElementTree parser, each in a process of its own: the yardsticks the reader is held to.
// Their CPU time (user + system of the child) is the fair figure on a machine that others
// share, so it is reported beside the wall-clock rate.
void runExternal(benchmark::State& state, const std::string& command) {
  const auto cpuBefore = cpuSeconds(RUSAGE_CHILDREN);
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) {
      state.SkipWithError(("failed: " + command).c_str());
      return;
    }
  }
  reportRates(state, cpuSeconds(RUSAGE_CHILDREN) - cpuBefore);
}

void BM_Xmlwf(benchmark::State& state) {
  runExternal(state, "xmlwf '" + generatedExport().xml.string() + "' > /dev/null");
}
BENCHMARK(BM_Xmlwf)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PythonIterparse(benchmark::State& state) {
  runExternal(state,
              "python3 -c 'import sys, xml.etree.ElementTree as ET\n"
              "for _, e in ET.iterparse(sys.argv[1]): e.clear()' '" +
                  generatedExport().xml.string() + "'");
}
BENCHMARK(BM_PythonIterparse)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
