// A device over a store file written inline, and a way to run one physical summary request to its
// end: the tests here read like "this store, this day, this document".
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/TestDevice.h"
#include "velk/documents/PhysicalDocument.h"
#include "velk/ingest/StoreFile.h"
#include "velk/physical/VelkPhysicalProvider.h"
#include "velk/platform/DebugOutput.h"

namespace velk::testing {

/// Installs a device (in `timeZone`) whose health database is the store file `storeJson`.
class PhysicalStore {
 public:
  explicit PhysicalStore(const std::string& storeJson, std::string timeZone = "UTC")
      : device_(TestDeviceOptions{.timeZone = std::move(timeZone),
                                  .healthDatabase = database(storeJson)}) {}

  TestDevice& device() { return device_; }

  /// One request on `provider`, run to its completion. Returns the document's
  /// "daily_activity_related_data" object and what the request wrote to the debug output.
  struct Answer {
    nlohmann::json daily;
    std::string debugOutput;
    bool completedOnMainQueue = false;
  };
  Answer request(VelkPhysicalProvider& provider, Date date) {
    platform::DebugOutputCapture capture;
    Answer answer;
    bool done = false;
    provider.getPhysicalData(date, [&](Result<VelkPhysicalData> result) {
      answer.completedOnMainQueue = device_.mainQueue().isCurrent();
      EXPECT_TRUE(result.isSuccess());
      if (result.isSuccess()) {
        answer.daily = result.value().getDictionary()["summaries"]["daily_activity_related_data"];
      }
      done = true;
    });
    EXPECT_TRUE(device_.mainQueue().runUntil([&] { return done; }, std::chrono::seconds(20)));
    answer.debugOutput = capture.text();
    return answer;
  }

 private:
  static std::shared_ptr<platform::HealthDatabase> database(const std::string& storeJson) {
    auto contents = ingest::StoreFile::parse(storeJson, "test-store.json");
    if (contents.isFailure()) {
      ADD_FAILURE() << contents.error();
      return nullptr;
    }
    return ingest::StoreFile::makeDatabase(contents.value());
  }

  TestDevice device_;
};

}  // namespace velk::testing
