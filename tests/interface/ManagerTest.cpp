#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "sleep/SleepTestStore.h"
#include "velk/documents/BodyDocument.h"
#include "velk/documents/PhysicalDocument.h"
#include "velk/documents/SleepDocument.h"
#include "velk/healthstore/AppleHealthErrors.h"
#include "velk/interface/VelkExtractionManager.h"
#include "velk/sleep/SleepRepository.h"

namespace velk {
namespace {

using testing::Completions;
using testing::sleepSample;
using testing::SleepTestStore;

/// What a dictionary form hands its completion.
struct DictionaryAnswer {
  std::optional<nlohmann::json> dictionary;
  std::optional<Error> error;
};

VelkExtractionManager::DictionaryCompletion collect(const Completions<DictionaryAnswer>& answers) {
  return [completion = answers.completion()](std::optional<nlohmann::json> dictionary,
                                             std::optional<Error> error) {
    completion({std::move(dictionary), std::move(error)});
  };
}

// An owner that answers every request at once with a fixed result, and remembers the date.
template <class Interface, class Document>
class FixedOwner : public Interface {
 public:
  explicit FixedOwner(Result<Document> answer) : answer_(std::move(answer)) {}
  std::optional<Date> askedFor;

 protected:
  void answer(Date date, const typename Interface::Completion& completion) {
    askedFor = date;
    completion(answer_);
  }

 private:
  Result<Document> answer_;
};

class FixedPhysicalOwner final : public FixedOwner<PhysicalSummaryOwner, VelkPhysicalData> {
 public:
  using FixedOwner::FixedOwner;
  void getPhysicalData(Date date, Completion completion) override { answer(date, completion); }
};

class FixedBodyOwner final : public FixedOwner<BodySummaryOwner, VelkBodyData> {
 public:
  using FixedOwner::FixedOwner;
  void getBodySummary(Date date, Completion completion) override { answer(date, completion); }
};

TEST(ManagerTest, SleepDocumentsFromAStoreFileInBothForms) {
  SleepTestStore store(nlohmann::json{
      {"samples", {sleepSample(4, "2024-03-10T01:00:00Z", "2024-03-10T02:30:00Z")}}});
  VelkExtractionManager manager;
  const Date date = testing::utcDate(2024, 3, 10, 8, 30);

  Completions<Result<std::optional<VelkSleepData>>> typed;
  manager.getSleepSummay(date, typed.completion());
  const auto document = typed.wait();
  ASSERT_TRUE(document && document->isSuccess() && document->value().has_value());
  EXPECT_EQ(document->value()
                ->summaries.sleepRelatedData.sleepDurationRelatedData.deepSleepDurationSeconds,
            5400);

  Completions<DictionaryAnswer> dictionary;
  manager.getSleepSummayObjc(date, collect(dictionary));
  const auto answer = dictionary.wait();
  ASSERT_TRUE(answer.has_value());
  EXPECT_FALSE(answer->error.has_value());
  EXPECT_EQ(answer->dictionary, document->value()->getDictionary());
  EXPECT_EQ(manager.getLastExtractionDateOfSleep(), date);
}

TEST(ManagerTest, SleepDictionaryIsEmptyWithoutAListAndAnErrorIsPassedOnUnchanged) {
  {
    SleepTestStore store(nlohmann::json::object(), {}, [](ingest::StoreFileContents& contents) {
      contents.settings.typesAnsweringWithoutSamples.insert(
          "HKCategoryTypeIdentifierSleepAnalysis");
    });
    VelkExtractionManager manager;
    Completions<DictionaryAnswer> answers;
    manager.getSleepSummayObjc(testing::utcDate(2024, 3, 10), collect(answers));
    const auto answer = answers.wait();
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->dictionary, nlohmann::json::object());
    EXPECT_FALSE(answer->error.has_value());
  }
  {
    SleepTestStore store(nlohmann::json{
        {"query_errors",
         {{"HKCategoryTypeIdentifierSleepAnalysis", {{"code", 6}, {"message", "locked"}}}}}});
    VelkExtractionManager manager;
    Completions<DictionaryAnswer> answers;
    manager.getSleepSummayObjc(testing::utcDate(2024, 3, 10), collect(answers));
    const auto answer = answers.wait();
    ASSERT_TRUE(answer && answer->error.has_value());
    EXPECT_FALSE(answer->dictionary.has_value());
    EXPECT_TRUE(answer->error->isSameInstance(
        *store.database().queryError("HKCategoryTypeIdentifierSleepAnalysis")));
  }
}

TEST(ManagerTest, DictionaryFormsPassErrorsOnAndTurnUnencodableDocumentsIntoEmptyDictionaries) {
  testing::TestDevice device;
  VelkBodyData unencodable;
  unencodable.summaries.bodyData.metadata.datetime =
      Date::fromReferenceSeconds(std::numeric_limits<double>::quiet_NaN());
  const Error emptySamples = makeError(AppleHealthErrors::emptySamples);
  auto physical =
      std::make_shared<FixedPhysicalOwner>(Result<VelkPhysicalData>::failure(emptySamples));
  auto body = std::make_shared<FixedBodyOwner>(Result<VelkBodyData>::success(unencodable));
  VelkExtractionManager manager({SleepRepository::make(), physical, body});
  const Date date = testing::utcDate(2024, 3, 10, 23, 59, 59.5);

  Completions<DictionaryAnswer> physicalAnswers;
  manager.getPhysicalSummaryObjc(date, collect(physicalAnswers));
  const auto physicalAnswer = physicalAnswers.wait();
  ASSERT_TRUE(physicalAnswer && physicalAnswer->error.has_value());
  EXPECT_FALSE(physicalAnswer->dictionary.has_value());
  EXPECT_TRUE(physicalAnswer->error->isSameInstance(emptySamples));
  EXPECT_EQ(physicalAnswer->error->message(), "Any sample was found for the data type");
  EXPECT_EQ(physical->askedFor, date);  // passed on unchanged

  Completions<DictionaryAnswer> bodyAnswers;
  manager.getBodySummaryObjc(date, collect(bodyAnswers));
  const auto bodyAnswer = bodyAnswers.wait();
  ASSERT_TRUE(bodyAnswer.has_value());
  EXPECT_EQ(bodyAnswer->dictionary, nlohmann::json::object());
  EXPECT_FALSE(bodyAnswer->error.has_value());

  // The typed forms hand over the owner's result as it is.
  Completions<Result<VelkBodyData>> typedBody;
  manager.getBodySummary(date, typedBody.completion());
  const auto typed = typedBody.wait();
  ASSERT_TRUE(typed && typed->isSuccess());
  EXPECT_TRUE(std::isnan(
      typed->value().summaries.bodyData.metadata.datetime.timeIntervalSinceReferenceDate()));
}

TEST(ManagerTest, ThePerKindGettersAllReadTheSleepEntryOnlyTheGeneralOneHonoursItsKind) {
  testing::TestDevice device;
  VelkExtractionManager manager;
  for (VelkDataType kind : allVelkDataTypes) {
    EXPECT_EQ(manager.getLastExtractionDate(kind), std::nullopt);
  }
  EXPECT_EQ(manager.getLastExtractionDateOfSleep(), std::nullopt);
  EXPECT_EQ(manager.getLastExtractionDateOfPhysical(), std::nullopt);
  EXPECT_EQ(manager.getLastExtractionDateOfBody(), std::nullopt);

  const Date sleep = testing::utcDate(2024, 3, 1);
  const Date physical = testing::utcDate(2024, 3, 3);
  const Date body = testing::utcDate(2024, 3, 5);
  ExtractionLastDateStorage storage;
  storage.storeLastDate(sleep, VelkDataType::sleepSummary);
  storage.storeLastDate(physical, VelkDataType::physicalSummary);
  storage.storeLastDate(body, VelkDataType::bodySummary);

  EXPECT_EQ(manager.getLastExtractionDateOfSleep(), sleep);
  EXPECT_EQ(manager.getLastExtractionDateOfPhysical(), sleep);
  EXPECT_EQ(manager.getLastExtractionDateOfBody(), sleep);
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::sleepSummary), sleep);
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::physicalSummary), physical);
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::bodySummary), body);
}

TEST(ManagerTest, ThePlainManagerReachesThePhysicalAndBodyOwnersOnTheMainQueue) {
  SleepTestStore store(nlohmann::json::object());
  VelkExtractionManager manager;
  Completions<DictionaryAnswer> physical, body;
  manager.getPhysicalSummaryObjc(testing::utcDate(2024, 3, 10), collect(physical));
  manager.getBodySummaryObjc(testing::utcDate(2024, 3, 10), collect(body));
  ASSERT_TRUE(store.device().mainQueue().runUntil(
      [&] { return physical.count() == 1 && body.count() == 1; }, std::chrono::seconds(10)));
  EXPECT_EQ(physical.wait()->dictionary.value().at("data_structure"), "physical_health");
  EXPECT_EQ(body.wait()->dictionary.value().at("data_structure"), "body_health");
}

}  // namespace
}  // namespace velk
