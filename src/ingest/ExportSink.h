// Where an export's contents go: the user's characteristics and the sample records, in the order
// of the file, on the thread that called the reader.
#pragma once

#include "ingest/ExportRecordBatch.h"
#include "platform/SampleRecord.h"

namespace velk::ingest {

class ExportSink {
 public:
  virtual ~ExportSink() = default;

  /// The <Me> element's date of birth and biological sex; not called for an export without one.
  virtual void characteristics(platform::Characteristics characteristics) = 0;

  virtual void record(platform::SampleRecord record) = 0;

  /// The records of one part of the file at once; override to store them in bulk without
  /// building a SampleRecord (and its strings) for each.
  virtual void records(ExportRecordBatch&& batch) {
    for (const auto& one : batch.records) {
      record(batch.sampleRecord(one));
    }
  }
};

}  // namespace velk::ingest
