// What the export fuzzers share: a source over the fuzzer's bytes and a sink that looks at every
// record, so that a record holding freed or uninitialised memory shows under the sanitizers.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "ingest/ExportReader.h"

namespace velk::fuzz {

class MemorySource final : public ingest::ExportSource {
 public:
  MemorySource(const std::uint8_t* data, std::size_t size, std::size_t step)
      : data_(data), size_(size), step_(std::max<std::size_t>(step, 1)) {}

  // Hands out at most `step_` bytes at a time, so that the readers meet their input torn at
  // every kind of place.
  Result<std::size_t> read(char* buffer, std::size_t size) override {
    const auto count = std::min({size, step_, size_ - offset_});
    if (count > 0) {
      std::memcpy(buffer, data_ + offset_, count);
    }
    offset_ += count;
    return Result<std::size_t>::success(count);
  }
  const std::string& description() const override { return description_; }
  std::uint64_t size() const override { return size_; }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t step_;
  std::size_t offset_ = 0;
  std::string description_ = "fuzz.xml";
};

class TouchingSink final : public ingest::ExportSink {
 public:
  void characteristics(platform::Characteristics value) override {
    touched_ += value.biologicalSex.index();
  }
  void record(platform::SampleRecord value) override {
    touched_ += value.type.size() + value.unit.size() + value.sourceName.size() +
                value.sourceBundleIdentifier.size();
    // The platform never holds a value that is not finite: the readers must not hand one on.
    if (!std::isfinite(value.value) ||
        !std::isfinite(value.start.timeIntervalSinceReferenceDate()) ||
        !std::isfinite(value.end.timeIntervalSinceReferenceDate())) {
      __builtin_trap();
    }
  }
  // The batch as it comes, without a record of strings made for each of its records: every
  // index must lie in its table (at() checks it) and every number must be finite.
  void records(ingest::ExportRecordBatch&& batch) override {
    for (const auto& record : batch.records) {
      touched_ += batch.types.at(record.type).size() + batch.units.at(record.unit).size() +
                  batch.sources.at(record.source).name.size() +
                  batch.sources.at(record.source).bundleIdentifier.size();
      if (!std::isfinite(record.value) ||
          !std::isfinite(record.start.timeIntervalSinceReferenceDate()) ||
          !std::isfinite(record.end.timeIntervalSinceReferenceDate())) {
        __builtin_trap();
      }
    }
  }
  std::size_t touched() const { return touched_; }

 private:
  std::size_t touched_ = 0;
};

}  // namespace velk::fuzz
