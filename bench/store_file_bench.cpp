// How reading a store file grows with its samples. Store files are the test fixtures' format,
// but nothing in reading them may grow faster than the file: the benchmark reports the fitted
// complexity over 10,000 to 160,000 samples: N or N log N (the allocator's share grows a little
// with the tree), never N^2, which a quadratic step once gave (a million samples took minutes).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>

#include "ingest/StoreFile.h"

namespace {

// A store file of `count` step samples of a minute each, on the minutes of one day.
std::string storeFileOf(std::int64_t count) {
  std::string text = "{\"samples\": [\n";
  char sample[200];
  for (std::int64_t i = 0; i < count; ++i) {
    const std::int64_t minute = i % 60;
    const std::int64_t hour = (i / 60) % 24;
    std::snprintf(sample, sizeof sample,
                  "%s{\"type\": \"HKQuantityTypeIdentifierStepCount\", \"start\": "
                  "\"2020-01-01T%02lld:%02lld:00Z\", \"end\": \"2020-01-01T%02lld:%02lld:50Z\", "
                  "\"value\": %lld}\n",
                  i == 0 ? "" : ",", static_cast<long long>(hour), static_cast<long long>(minute),
                  static_cast<long long>(hour), static_cast<long long>(minute),
                  static_cast<long long>(i % 100));
    text += sample;
  }
  return text + "]}\n";
}

void BM_ParseStoreFile(benchmark::State& state) {
  const std::string text = storeFileOf(state.range(0));
  for (auto _ : state) {
    auto contents = velk::ingest::StoreFile::parse(text, "bench.json");
    if (contents.isFailure()) {
      state.SkipWithError(contents.error().message().c_str());
      return;
    }
    benchmark::DoNotOptimize(contents);
  }
  state.SetComplexityN(state.range(0));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(BM_ParseStoreFile)
    ->RangeMultiplier(2)
    ->Range(10'000, 160'000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

}  // namespace

BENCHMARK_MAIN();
