// Where an export's contents go: the user's characteristics and the sample records, in the order
// of the file, on the thread that called the reader.
#pragma once

#include <vector>

#include "velk/platform/SampleRecord.h"

namespace velk::ingest {

class ExportSink {
 public:
  virtual ~ExportSink() = default;

  /// The <Me> element's date of birth and biological sex; not called for an export without one.
  virtual void characteristics(platform::Characteristics characteristics) = 0;

  virtual void record(platform::SampleRecord record) = 0;

  /// The records of one part of the file at once; override to store them in bulk.
  virtual void records(std::vector<platform::SampleRecord>&& batch) {
    for (auto& one : batch) {
      record(std::move(one));
    }
  }
};

}  // namespace velk::ingest
