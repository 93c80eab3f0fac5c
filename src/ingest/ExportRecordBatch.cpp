#include "ingest/ExportRecordBatch.h"

namespace velk::ingest {

platform::SampleRecord ExportRecordBatch::sampleRecord(const ExportRecord& record) const {
  platform::SampleRecord sample;
  sample.type = types[record.type];
  sample.kind = record.kind;
  sample.value = record.value;
  sample.unit = units[record.unit];
  sample.start = record.start;
  sample.end = record.end;
  sample.sourceBundleIdentifier = sources[record.source].bundleIdentifier;
  sample.sourceName = sources[record.source].name;
  sample.wasUserEntered = record.wasUserEntered;
  return sample;
}

}  // namespace velk::ingest
