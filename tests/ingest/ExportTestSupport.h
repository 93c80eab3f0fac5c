// Helpers for the ingest tests: a sink that keeps what it receives, small exports and archives
// written record by record, and an export read straight into memory, to compare an import
// database's answers with.
#pragma once

#include <gtest/gtest.h>
#include <zip.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "ingest/ExportReader.h"
#include "ingest/ImportedHealthDatabase.h"
#include "platform/InMemoryHealthDatabase.h"
#include "support/TempDir.h"

namespace velk::testing {

class CollectingSink final : public ingest::ExportSink {
 public:
  void characteristics(platform::Characteristics value) override { me = std::move(value); }
  void record(platform::SampleRecord value) override { records.push_back(std::move(value)); }

  /// "Type=count" for every type, without the "HK...TypeIdentifier" prefix, in the order of names.
  std::string countsByType() const {
    std::map<std::string, int> counts;
    for (const auto& one : records) {
      ++counts[one.type.size() > 24 ? one.type.substr(24) : one.type];
    }
    std::string text;
    for (const auto& [type, count] : counts) {
      text += (text.empty() ? "" : " ") + type + "=" + std::to_string(count);
    }
    return text;
  }
  std::vector<double> values() const {
    std::vector<double> all;
    for (const auto& one : records) {
      all.push_back(one.value);
    }
    return all;
  }

  std::optional<platform::Characteristics> me;
  std::vector<platform::SampleRecord> records;
};

/// A real export beside the repository (see their README), e.g. "watch5-2020/export.xml".
inline std::filesystem::path realExport(const std::string& name) {
  return sourcePath("../shared/testdata/exports/" + name);
}

inline std::string repeated(const std::string& text, std::size_t times) {
  std::string all;
  all.reserve(text.size() * times);
  while (times-- > 0) {
    all += text;
  }
  return all;
}

/// The DTD-less start of an export up to and including <ExportDate>, one element per line (line
/// 4 is the first line after it).
inline std::string exportHead() {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<HealthData locale=\"en_US\">\n"
         " <ExportDate value=\"2024-03-20 10:00:00 +0100\"/>\n";
}

/// A whole export of `body` (record lines).
inline std::string exportWith(const std::string& body) {
  return exportHead() + body + "</HealthData>\n";
}

/// A step-count record line from `source` whose value is written as given.
inline std::string namedRecord(const std::string& source, const std::string& value = "5",
                               const std::string& start = "2024-03-10 08:30:00 +0100",
                               const std::string& end = "2024-03-10 08:31:00 +0100") {
  return " <Record type=\"HKQuantityTypeIdentifierStepCount\" sourceName=\"" + source +
         "\" unit=\"count\" startDate=\"" + start + "\" endDate=\"" + end + "\" value=\"" + value +
         "\"/>\n";
}

/// A step-count record line from the phone, of no length, starting at `start`.
inline std::string stepRecord(int steps, const std::string& start = "2024-03-10 08:30:00 +0100") {
  return namedRecord("Anna's iPhone", std::to_string(steps), start, start);
}

/// A sleep record line of stage `stage` (HKCategoryValueSleepAnalysis<stage>); `children`, when
/// given, are written inside it.
inline std::string sleepRecord(const std::string& stage, const std::string& source = "S",
                               const std::string& start = "2024-03-10 00:30:00 +0100",
                               const std::string& end = "2024-03-10 06:30:00 +0100",
                               const std::string& children = "") {
  return " <Record type=\"HKCategoryTypeIdentifierSleepAnalysis\" sourceName=\"" + source +
         "\" startDate=\"" + start + "\" endDate=\"" + end +
         "\" value=\"HKCategoryValueSleepAnalysis" + stage + "\"" +
         (children.empty() ? "/>\n" : ">\n" + children + " </Record>\n");
}

/// An export of `count` (at most 181,440) step records of the values first, first + 1, ..., one
/// every ten seconds from 2024-03-10 00:00 UTC.
inline std::string exportOf(int count, int first = 0) {
  std::string body;
  for (int i = 0; i < count; ++i) {
    char start[40];
    std::snprintf(start, sizeof start, "2024-03-%02d %02d:%02d:%02d +0000", 10 + i / 8640,
                  (i / 360) % 24, (i / 6) % 60, (i % 6) * 10);
    body += stepRecord(first + i, start);
  }
  return exportWith(body);
}

/// Writes an archive of (name, contents) entries, deflated; true when it was written.
inline bool writeZip(const std::filesystem::path& path,
                     const std::vector<std::pair<std::string, std::string>>& entries) {
  int error = 0;
  zip_t* archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  if (archive == nullptr) {
    return false;
  }
  for (const auto& [name, contents] : entries) {
    zip_source_t* source = zip_source_buffer(archive, contents.data(), contents.size(), 0);
    if (source == nullptr || zip_file_add(archive, name.c_str(), source, ZIP_FL_ENC_UTF_8) < 0) {
      zip_discard(archive);
      return false;
    }
  }
  return zip_close(archive) == 0;
}

/// The step counts stored in the import database at `database`, in their order.
inline std::vector<double> storedSteps(const std::filesystem::path& database) {
  auto opened = ingest::ImportedHealthDatabase::open(database);
  EXPECT_TRUE(opened.isSuccess()) << (opened.isFailure() ? opened.error().message() : "");
  std::vector<double> values;
  if (opened.isFailure()) {
    return values;
  }
  const auto read =
      opened.value()->samples("HKQuantityTypeIdentifierStepCount", std::nullopt, std::nullopt);
  EXPECT_TRUE(read.isSuccess()) << (read.isFailure() ? read.error().message() : "");
  for (const auto& sample :
       read.isSuccess() ? read.value() : std::vector<platform::StoredSample>{}) {
    values.push_back(sample.value);
  }
  return values;
}

/// The files beside `database` that imports of it write before they install them.
inline std::vector<std::string> importFilesBeside(const std::filesystem::path& database) {
  std::vector<std::string> names;
  const std::string prefix = database.filename().string() + ".importing";
  for (const auto& entry : std::filesystem::directory_iterator(database.parent_path())) {
    if (entry.path().filename().string().rfind(prefix, 0) == 0) {
      names.push_back(entry.path().filename().string());
    }
  }
  return names;
}

}  // namespace velk::testing
