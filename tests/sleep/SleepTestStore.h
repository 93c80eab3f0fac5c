// Helpers for sleep tests: a sleep sample in store-file JSON, and a device over such a store.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "ingest/StoreFile.h"
#include "support/StoreFixture.h"
#include "support/TestDevice.h"

namespace velk::testing {

inline nlohmann::json sleepSample(int value, const std::string& start, const std::string& end,
                                  const std::string& source = "com.apple.health") {
  return {{"type", "HKCategoryTypeIdentifierSleepAnalysis"},
          {"start", start},
          {"end", end},
          {"value", value},
          {"source", source}};
}

/// Installs a device over the store that `storeFile` describes, read by the store-file reader;
/// `adjust` may change what was read before the database is built.
class SleepTestStore {
 public:
  explicit SleepTestStore(const nlohmann::json& storeFile, TestDeviceOptions options = {},
                          const std::function<void(ingest::StoreFileContents&)>& adjust = {}) {
    auto contents = ingest::StoreFile::parse(storeFile.dump(), "store.json");
    EXPECT_TRUE(contents.isSuccess()) << contents.error();
    ingest::StoreFileContents read =
        contents.isSuccess() ? contents.value() : ingest::StoreFileContents{};
    if (adjust) {
      adjust(read);
    }
    database_ = ingest::StoreFile::makeDatabase(read);
    options.healthDatabase = database_;
    device_ = std::make_unique<TestDevice>(std::move(options));
  }
  TestDevice& device() { return *device_; }
  platform::HealthDatabase& database() { return *database_; }

 private:
  std::shared_ptr<platform::HealthDatabase> database_;
  std::unique_ptr<TestDevice> device_;
};

}  // namespace velk::testing
