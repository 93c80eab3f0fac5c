#include "support/StoreFixture.h"

#include <gtest/gtest.h>

#include "ingest/StoreFile.h"

namespace velk::testing {

std::shared_ptr<platform::InMemoryHealthDatabase> databaseFromJson(const std::string& json) {
  auto contents = ingest::StoreFile::parse(json, "test.json");
  if (contents.isFailure()) {
    ADD_FAILURE() << contents.error().message();
    return std::make_shared<platform::InMemoryHealthDatabase>();
  }
  return ingest::StoreFile::makeDatabase(contents.value());
}

SampleAnswer runSampleQuery(const platform::HKHealthStore& store,
                            const platform::HKObjectType& type,
                            std::optional<platform::NSPredicate> predicate, std::int64_t limit,
                            std::vector<platform::NSSortDescriptor> sort) {
  Completions<SampleAnswer> answer;
  const auto caller = std::this_thread::get_id();
  store.executeQuery(platform::HKSampleQuery(
      type, std::move(predicate), limit, std::move(sort),
      [set = answer.completion(), caller](const platform::HKSampleQuery&,
                                          std::optional<platform::HKSampleList> samples,
                                          std::optional<Error> error) {
        set(SampleAnswer{std::move(samples), std::move(error),
                         std::this_thread::get_id() == caller});
      }));
  auto result = answer.wait();
  if (!result) {
    ADD_FAILURE() << "the sample query never answered";
    return {};
  }
  return *result;
}

CollectionAnswer runCollectionQuery(const platform::HKHealthStore& store,
                                    platform::HKStatisticsCollectionQuery query) {
  Completions<CollectionAnswer> answer;
  query.initialResultsHandler = [set = answer.completion()](
                                    const platform::HKStatisticsCollectionQuery&,
                                    std::optional<platform::HKStatisticsCollection> collection,
                                    std::optional<Error> error) {
    set(CollectionAnswer{std::move(collection), std::move(error)});
  };
  store.executeQuery(std::move(query));
  auto result = answer.wait();
  if (!result) {
    ADD_FAILURE() << "the statistics query never answered";
    return {};
  }
  return *result;
}

void drainQueue(platform::DispatchQueue& queue) {
  Completions<bool> done;
  queue.async([completion = done.completion()] { completion(true); });
  ASSERT_TRUE(done.wait().has_value()) << "the queue never ran";
}

QueueGate::QueueGate(platform::DispatchQueue& queue) {
  queue.async([opened = opened_] { opened.wait(); });
}

QueueGate::~QueueGate() {
  opened_.completion()(true);
}

}  // namespace velk::testing
