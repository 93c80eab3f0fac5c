#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "healthstore/AppleHealthErrors.h"
#include "platform/HealthDatabase.h"
#include "sleep/SleepRepository.h"
#include "sleep/SleepTestStore.h"
#include "velk/SleepDocument.h"

namespace velk {
namespace {

using testing::sleepSample;
using SleepResult = Result<std::optional<VelkSleepData>>;
using Json = nlohmann::json;
constexpr const char* kSleepType = "HKCategoryTypeIdentifierSleepAnalysis";

// One request, answered on the store's queue; the repository is kept until the answer is in.
SleepResult requestSleep(Date date) {
  const auto repository = SleepRepository::make();
  const auto storeQueue = platform::HealthDatabase::ofCurrentDevice()->callbackQueue();
  return testing::firstAnswer<SleepResult>([&](auto done) {
    repository->getSleepData(date, [storeQueue, done](SleepResult result) {
      EXPECT_TRUE(storeQueue->isCurrent());
      done(std::move(result));
    });
  });
}

SleepDurationRelatedData nightOf(const SleepResult& result) {
  EXPECT_TRUE(result.isSuccess() && result.value().has_value());
  return result.isSuccess() && result.value()
             ? result.value()->summaries.sleepRelatedData.sleepDurationRelatedData
             : SleepDurationRelatedData{};
}

std::optional<Date> storedSleepDate() {
  return ExtractionLastDateStorage().readLastDate(VelkDataType::sleepSummary);
}

TEST(SleepRepositoryTest, TheNightRunsTwentyFourHoursBackFromTheDaysNoonAcrossClockChanges) {
  // Both nights hold a clock change, so they start at 11:00 (Berlin) and 13:00 (New York) of the
  // previous day. Only the 60 s and 660 s samples overlap: an end exactly at the night's start
  // counts, a start exactly at its end does not.
  struct Case {
    std::string zone;
    int month, day;
    Json samples;
  };
  for (const Case& c : std::vector<Case>{
           {"Europe/Berlin",
            3,
            31,
            {sleepSample(0, "2024-03-30T10:50:00+01:00", "2024-03-30T10:59:59+01:00"),
             sleepSample(0, "2024-03-30T10:59:00+01:00", "2024-03-30T11:00:00+01:00"),
             sleepSample(0, "2024-03-31T11:59:00+02:00", "2024-03-31T12:10:00+02:00"),
             sleepSample(0, "2024-03-31T12:00:00+02:00", "2024-03-31T12:30:00+02:00")}},
           {"America/New_York",
            11,
            3,
            {sleepSample(0, "2024-11-02T12:00:00-04:00", "2024-11-02T12:59:00-04:00"),
             sleepSample(0, "2024-11-02T12:59:00-04:00", "2024-11-02T13:00:00-04:00"),
             sleepSample(0, "2024-11-03T11:59:00-05:00", "2024-11-03T12:10:00-05:00"),
             sleepSample(0, "2024-11-03T12:00:00-05:00", "2024-11-03T12:30:00-05:00")}}}) {
    testing::SleepTestStore store(Json{{"samples", c.samples}}, {.timeZone = c.zone});
    for (int hour : {0, 8, 23}) {  // any time of the day names the same night
      EXPECT_EQ(nightOf(requestSleep(store.device().localDate(2024, c.month, c.day, hour, 59)))
                    .timeInBedSeconds,
                720)
          << c.zone << " " << hour;
    }
  }
}

TEST(SleepRepositoryTest, HealthAppSamplesOnlyStagesFromSystem16AndOverlapsCountedTwice) {
  Json manual = sleepSample(4, "2024-03-10T04:00:00Z", "2024-03-10T05:00:00Z");
  manual["metadata"] = {{"HKWasUserEntered", true}};
  const Json storeFile = {
      {"samples",
       {sleepSample(0, "2024-03-09T22:00:00Z", "2024-03-10T06:00:00Z", "com.apple.health.A1"),
        sleepSample(0, "2024-03-09T22:00:00Z", "2024-03-10T06:00:00Z", "com.apple.health.B2"),
        sleepSample(3, "2024-03-09T23:00:00Z", "2024-03-10T01:00:00Z", "x.com.apple.health.y"),
        sleepSample(4, "2024-03-10T01:00:00Z", "2024-03-10T02:00:00Z"),
        sleepSample(5, "2024-03-10T02:00:00Z", "2024-03-10T02:30:00Z"),
        sleepSample(2, "2024-03-10T02:30:00Z", "2024-03-10T02:40:00Z"),
        sleepSample(1, "2024-03-10T03:00:00Z", "2024-03-10T03:10:00Z"),
        sleepSample(6, "2024-03-10T03:10:00Z", "2024-03-10T03:20:00Z"),  // no such value
        sleepSample(3, "2024-03-10T03:10:00Z", "2024-03-10T05:10:00Z", "com.sleepcycle.app"),
        sleepSample(3, "2024-03-10T03:10:00Z", "2024-03-10T05:10:00Z", "com.apple.Health"),
        manual}}};
  const Date date = testing::utcDate(2024, 3, 10, 8, 30);
  const Date end = testing::utcDate(2024, 3, 10, 3, 10);
  {
    testing::SleepTestStore store(storeFile, {.osVersion = {16, 0, 0}});
    const SleepResult result = requestSleep(date);
    EXPECT_EQ(nightOf(result), (SleepDurationRelatedData{testing::utcDate(2024, 3, 9, 22), end, end,
                                                         7200 + 3600 + 1800 + 600, 2 * 28800, 7200,
                                                         1800, 3600, 0, 600}));
    const VelkSleepMetadata& metadata = result.value()->summaries.sleepRelatedData.metadata;
    EXPECT_EQ(metadata.datetime, end);
    EXPECT_EQ(metadata.sourcesOfData, std::vector<std::string>{"Apple Health"});
    EXPECT_EQ(metadata.userDemographics, std::vector<UserDemographic>(1));
  }
  {
    testing::SleepTestStore store(storeFile, {.osVersion = {15, 7, 9}});
    EXPECT_EQ(nightOf(requestSleep(date)),
              (SleepDurationRelatedData{testing::utcDate(2024, 3, 9, 22), end, end, 600, 2 * 28800,
                                        0, 0, 0, 0, 600}));
  }
}

TEST(SleepRepositoryTest, NoListOrAListWithAForeignKindGivesNoDocumentButMovesTheDate) {
  Json quantity = sleepSample(1, "2024-03-10T01:00:00Z", "2024-03-10T02:00:00Z");
  quantity.update({{"kind", "quantity"}, {"unit", "count"}});
  const Date date = testing::utcDate(2024, 3, 10, 8, 30);
  for (bool withoutList : {true, false}) {
    testing::SleepTestStore store(Json{{"samples", {quantity}}}, {}, [&](auto& contents) {
      if (withoutList) {
        contents.settings.typesAnsweringWithoutSamples.insert(kSleepType);
      }
    });
    const SleepResult result = requestSleep(date);
    ASSERT_TRUE(result.isSuccess());
    EXPECT_EQ(result.value(), std::nullopt);
    EXPECT_EQ(storedSleepDate(), date);
  }
}

TEST(SleepRepositoryTest, AnUnknownSleepTypeFailsOnTheCallersThreadAndLeavesTheDateAlone) {
  testing::SleepTestStore store(Json{{"unknown_types", {kSleepType}}});
  testing::Completions<SleepResult> completions;
  SleepRepository::make()->getSleepData(testing::utcDate(2024, 3, 10), completions.completion());
  ASSERT_EQ(completions.values().size(), 1u);
  EXPECT_TRUE(errorIs(completions.values()[0].error(), AppleHealthErrors::sampleTypeNotAvailable));
  EXPECT_EQ(storedSleepDate(), std::nullopt);
}

// Releases the repository while the store's queue is held, so that the answer comes after.
std::vector<SleepResult> requestAndRelease(testing::SleepTestStore& store) {
  auto& storeQueue = *store.database().callbackQueue();
  testing::Completions<SleepResult> completions;
  {
    testing::QueueGate gate(storeQueue);
    SleepRepository::make()->getSleepData(testing::utcDate(2024, 3, 10), completions.completion());
  }
  testing::drainQueue(storeQueue);
  return completions.values();
}

TEST(SleepRepositoryConcurrencyTest, AReleasedRepositoryDropsASuccessButPassesAFailureOn) {
  {
    testing::SleepTestStore store(
        Json{{"samples", {sleepSample(1, "2024-03-10T01:00:00Z", "2024-03-10T02:00:00Z")}}});
    EXPECT_TRUE(requestAndRelease(store).empty());
    EXPECT_EQ(storedSleepDate(), std::nullopt);
  }
  testing::SleepTestStore store(
      Json{{"query_errors", {{kSleepType, {{"code", 4}, {"message", "locked"}}}}}});
  const std::vector<SleepResult> results = requestAndRelease(store);
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0].error().message(), "locked");
}

}  // namespace
}  // namespace velk
