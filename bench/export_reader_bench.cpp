// Read throughput of the export reader in MB/s of XML, beside a plain expat pass over the same
// bytes (the floor any expat-based reader stands on). The export is generated once per run:
//   VELK_BENCH_EXPORT_DAYS  days of data (default 20, about 12 MB; 0.6 MB per day)
//   VELK_BENCH_EXPORT_DIR   where to write it (default the system's temporary folder)
#include <benchmark/benchmark.h>
#include <expat.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "ExportGenerator.h"
#include "velk/ingest/ExportReader.h"

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

class CountingSink final : public velk::ingest::ExportSink {
 public:
  void characteristics(velk::platform::Characteristics) override {}
  void record(velk::platform::SampleRecord record) override {
    ++count;
    benchmark::DoNotOptimize(record.value);
  }
  void records(std::vector<velk::platform::SampleRecord>&& batch) override {
    count += batch.size();
    benchmark::DoNotOptimize(batch.data());
  }
  std::size_t count = 0;
};

void readExport(benchmark::State& state, const std::filesystem::path& path) {
  velk::ingest::ExportReadOptions options;
  options.threads = static_cast<unsigned>(state.range(0));
  const velk::ingest::ExportReader reader(options);
  std::size_t records = 0;
  for (auto _ : state) {
    CountingSink sink;
    const auto report = reader.read(path, sink);
    if (report.isFailure() || report.value().hasWarnings()) {
      state.SkipWithError("the generated export did not read cleanly");
      return;
    }
    records = sink.count;
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(generatedExport().bytes));
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

// expat alone: the same bytes read in the same blocks, an element handler that only counts.
void BM_PlainExpat(benchmark::State& state) {
  std::vector<char> block(1u << 20);
  for (auto _ : state) {
    std::FILE* in = std::fopen(generatedExport().xml.c_str(), "rb");
    XML_Parser parser = XML_ParserCreate("UTF-8");
    std::size_t elements = 0;
    XML_SetUserData(parser, &elements);
    XML_SetStartElementHandler(parser, [](void* count, const XML_Char*, const XML_Char**) {
      ++*static_cast<std::size_t*>(count);
    });
    for (std::size_t got; (got = std::fread(block.data(), 1, block.size(), in)) > 0;) {
      XML_Parse(parser, block.data(), static_cast<int>(got), 0);
    }
    XML_Parse(parser, nullptr, 0, 1);
    benchmark::DoNotOptimize(elements);
    XML_ParserFree(parser);
    std::fclose(in);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(generatedExport().bytes));
}
BENCHMARK(BM_PlainExpat)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
