// Helpers for tests that run queries against a substitute health store: build a database from
// store-file JSON, run a query and wait for its answer (which arrives on the store's queue).
#pragma once

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "velk/platform/HKHealthStore.h"
#include "velk/platform/InMemoryHealthDatabase.h"

namespace velk::testing {

/// The database that `json` (store-file text) describes; a failing test and an empty database
/// when the text is not a valid store file.
std::shared_ptr<platform::InMemoryHealthDatabase> databaseFromJson(const std::string& json);

struct SampleAnswer {
  std::optional<platform::HKSampleList> samples;
  std::optional<Error> error;
  bool answeredOnCallerThread = false;
};

SampleAnswer runSampleQuery(const platform::HKHealthStore& store,
                            const platform::HKObjectType& type,
                            std::optional<platform::NSPredicate> predicate, std::int64_t limit = 0,
                            std::vector<platform::NSSortDescriptor> sort = {});

struct CollectionAnswer {
  std::optional<platform::HKStatisticsCollection> collection;
  std::optional<Error> error;
};

CollectionAnswer runCollectionQuery(const platform::HKHealthStore& store,
                                    platform::HKStatisticsCollectionQuery query);

/// Waits for a value that a completion delivers on another thread; fails the test (and returns
/// nullopt) after five seconds.
template <class T>
class Awaited {
 public:
  Awaited() : future_(promise_->get_future()) {}
  auto setter() const {
    return [promise = promise_](T value) { promise->set_value(std::move(value)); };
  }
  std::optional<T> get() {
    if (future_.wait_for(std::chrono::seconds(5)) != std::future_status::ready) {
      return std::nullopt;
    }
    return future_.get();
  }

 private:
  std::shared_ptr<std::promise<T>> promise_ = std::make_shared<std::promise<T>>();
  std::future<T> future_;
};

}  // namespace velk::testing
