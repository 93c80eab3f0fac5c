#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <optional>

#include "sleep/SleepTestStore.h"
#include "velk/documents/BodyDocument.h"
#include "velk/documents/PhysicalDocument.h"
#include "velk/documents/SleepDocument.h"
#include "velk/healthstore/AppleHealthErrors.h"
#include "velk/interface/VelkExtractionManager.h"
#include "velk/sleep/SleepRepository.h"

namespace velk {
namespace {

using Json = nlohmann::json;
using Answer = std::pair<std::optional<Json>, std::optional<Error>>;  // a dictionary form's call

VelkExtractionManager::DictionaryCompletion collect(const testing::Completions<Answer>& answers) {
  return [done = answers.completion()](auto dictionary, auto error) {
    done({std::move(dictionary), std::move(error)});
  };
}

Answer sleepDictionary(VelkExtractionManager& manager, Date date) {
  testing::Completions<Answer> answers;
  manager.getSleepSummayObjc(date, collect(answers));
  return answers.wait().value_or(Answer{});
}

// Owners that answer at once with a fixed result.
struct FixedPhysicalOwner final : PhysicalSummaryOwner {
  Result<VelkPhysicalData> answer;
  explicit FixedPhysicalOwner(Result<VelkPhysicalData> a) : answer(std::move(a)) {}
  void getPhysicalData(Date, Completion completion) override { completion(answer); }
};
struct FixedBodyOwner final : BodySummaryOwner {
  Result<VelkBodyData> answer;
  explicit FixedBodyOwner(Result<VelkBodyData> a) : answer(std::move(a)) {}
  void getBodySummary(Date, Completion completion) override { completion(answer); }
};

TEST(ManagerTest, SleepFromAStoreFileInBothFormsAndItsEmptyAndFailedAnswers) {
  const Date date = testing::utcDate(2024, 3, 10, 8, 30);
  {
    testing::SleepTestStore store(Json{
        {"samples", {testing::sleepSample(4, "2024-03-10T01:00:00Z", "2024-03-10T02:30:00Z")}}});
    VelkExtractionManager manager;
    testing::Completions<Result<std::optional<VelkSleepData>>> typed;
    manager.getSleepSummay(date, typed.completion());
    const auto document = typed.wait().value().value();
    ASSERT_TRUE(document.has_value());
    EXPECT_EQ(
        document->summaries.sleepRelatedData.sleepDurationRelatedData.deepSleepDurationSeconds,
        5400);
    EXPECT_EQ(sleepDictionary(manager, date), Answer(document->getDictionary(), std::nullopt));
    EXPECT_EQ(manager.getLastExtractionDateOfSleep(), date);
  }
  {
    testing::SleepTestStore store(Json::object(), {}, [](auto& contents) {
      contents.settings.typesAnsweringWithoutSamples.insert(
          "HKCategoryTypeIdentifierSleepAnalysis");
    });
    VelkExtractionManager manager;
    EXPECT_EQ(sleepDictionary(manager, date), Answer(Json::object(), std::nullopt));
  }
  {
    testing::SleepTestStore store(
        Json{{"query_errors",
              {{"HKCategoryTypeIdentifierSleepAnalysis", {{"code", 6}, {"message", "locked"}}}}}});
    VelkExtractionManager manager;
    const Answer answer = sleepDictionary(manager, date);
    EXPECT_FALSE(answer.first.has_value());
    ASSERT_TRUE(answer.second.has_value());
    EXPECT_TRUE(answer.second->isSameInstance(
        *store.database().queryError("HKCategoryTypeIdentifierSleepAnalysis")));
  }
}

TEST(ManagerTest, DictionaryFormsPassErrorsOnAndTurnUnencodableDocumentsIntoEmptyDictionaries) {
  testing::TestDevice device;
  VelkBodyData unencodable;
  unencodable.summaries.bodyData.metadata.datetime =
      Date::fromReferenceSeconds(std::numeric_limits<double>::quiet_NaN());
  const Error emptySamples = makeError(AppleHealthErrors::emptySamples);
  VelkExtractionManager manager(
      {SleepRepository::make(),
       std::make_shared<FixedPhysicalOwner>(Result<VelkPhysicalData>::failure(emptySamples)),
       std::make_shared<FixedBodyOwner>(Result<VelkBodyData>::success(unencodable))});
  testing::Completions<Answer> physical, body;
  manager.getPhysicalSummaryObjc(Date(), collect(physical));
  manager.getBodySummaryObjc(Date(), collect(body));

  EXPECT_FALSE(physical.wait()->first.has_value());
  EXPECT_TRUE(physical.wait()->second->isSameInstance(emptySamples));
  EXPECT_EQ(physical.wait()->second->message(), "Any sample was found for the data type");
  EXPECT_EQ(body.wait(), Answer(Json::object(), std::nullopt));
}

TEST(ManagerTest, ThePerKindGettersAllReadTheSleepEntryOnlyTheGeneralOneHonoursItsKind) {
  testing::TestDevice device;
  VelkExtractionManager manager;
  for (VelkDataType kind : allVelkDataTypes) {
    EXPECT_EQ(manager.getLastExtractionDate(kind), std::nullopt);
  }
  EXPECT_EQ(manager.getLastExtractionDateOfPhysical(), std::nullopt);

  const Date sleep = testing::utcDate(2024, 3, 1), body = testing::utcDate(2024, 3, 5);
  ExtractionLastDateStorage().storeLastDate(sleep, VelkDataType::sleepSummary);
  ExtractionLastDateStorage().storeLastDate(body, VelkDataType::bodySummary);
  ExtractionLastDateStorage().storeLastDate(body, VelkDataType::physicalSummary);
  EXPECT_EQ(manager.getLastExtractionDateOfSleep(), sleep);
  EXPECT_EQ(manager.getLastExtractionDateOfPhysical(), sleep);
  EXPECT_EQ(manager.getLastExtractionDateOfBody(), sleep);
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::bodySummary), body);
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::physicalSummary), body);
}

}  // namespace
}  // namespace velk
