#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "sleep/SleepTestStore.h"
#include "velk/documents/SleepDocument.h"
#include "velk/healthstore/AppleHealthErrors.h"
#include "velk/interface/ExtractionLastDateStorage.h"
#include "velk/sleep/SleepRepository.h"

namespace velk {
namespace {

using testing::Completions;
using testing::sleepSample;
using testing::SleepTestStore;
using SleepResult = Result<std::optional<VelkSleepData>>;

constexpr const char* kSleepType = "HKCategoryTypeIdentifierSleepAnalysis";

SleepResult requestSleep(Date date) {
  const auto repository = SleepRepository::make();
  Completions<SleepResult> completions;
  repository->getSleepData(date, completions.completion());
  std::optional<SleepResult> result = completions.wait();
  if (!result) {
    ADD_FAILURE() << "the sleep request never completed";
    return SleepResult::failure(Error("test", 0, "no answer"));
  }
  EXPECT_EQ(completions.count(), 1u);
  return *result;
}

const SleepDurationRelatedData& nightOf(const SleepResult& result) {
  EXPECT_TRUE(result.isSuccess() && result.value().has_value());
  return result.value()->summaries.sleepRelatedData.sleepDurationRelatedData;
}

std::optional<Date> storedSleepDate() {
  return ExtractionLastDateStorage().readLastDate(VelkDataType::sleepSummary);
}

TEST(SleepRepositoryTest, TheNightRunsTwentyFourHoursBackFromTheDaysNoonAcrossClockChanges) {
  // Each zone's request day has a clock change in the night, so the night is 23 or 25 wall-clock
  // hours long: it starts at 11:00 of the previous day in Berlin and at 13:00 in New York. Only
  // the samples marked "in" overlap it; an end exactly at the night's start still counts, a start
  // exactly at its end does not.
  struct Case {
    std::string zone;
    int month, day;
    std::vector<nlohmann::json> samples;
  };
  const std::vector<Case> cases = {
      {"Europe/Berlin",
       3,
       31,
       {sleepSample(0, "2024-03-30T10:50:00+01:00", "2024-03-30T10:59:59+01:00"),  // out
        sleepSample(0, "2024-03-30T10:59:00+01:00", "2024-03-30T11:00:00+01:00"),  // in: 60
        sleepSample(0, "2024-03-31T11:59:00+02:00", "2024-03-31T12:10:00+02:00"),  // in: 660
        sleepSample(0, "2024-03-31T12:00:00+02:00", "2024-03-31T12:30:00+02:00")}},
      {"America/New_York",
       11,
       3,
       {sleepSample(0, "2024-11-02T12:00:00-04:00", "2024-11-02T12:59:00-04:00"),  // out
        sleepSample(0, "2024-11-02T12:59:00-04:00", "2024-11-02T13:00:00-04:00"),  // in: 60
        sleepSample(0, "2024-11-03T11:59:00-05:00", "2024-11-03T12:10:00-05:00"),  // in: 660
        sleepSample(0, "2024-11-03T12:00:00-05:00", "2024-11-03T12:30:00-05:00")}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.zone);
    SleepTestStore store(nlohmann::json{{"samples", c.samples}}, {.timeZone = c.zone});
    // Any time of the day names the same night.
    for (const auto& [hour, minute] : {std::pair{0, 0}, {8, 30}, {23, 59}}) {
      const SleepResult result =
          requestSleep(store.device().localDate(2024, c.month, c.day, hour, minute));
      EXPECT_EQ(nightOf(result).timeInBedSeconds, 720) << hour << ":" << minute;
    }
  }
}

TEST(SleepRepositoryTest, OnlyHealthAppSamplesCountAndStagesNeedSystem16) {
  const nlohmann::json storeFile = {
      {"samples",
       {sleepSample(0, "2024-03-09T22:00:00Z", "2024-03-10T06:00:00Z", "com.apple.health.A1B2"),
        sleepSample(3, "2024-03-09T23:00:00Z", "2024-03-10T01:00:00Z", "com.apple.health.A1B2"),
        sleepSample(4, "2024-03-10T01:00:00Z", "2024-03-10T02:00:00Z", "com.apple.health.A1B2"),
        sleepSample(5, "2024-03-10T02:00:00Z", "2024-03-10T02:30:00Z", "com.apple.health.A1B2"),
        sleepSample(2, "2024-03-10T02:30:00Z", "2024-03-10T02:40:00Z", "com.apple.health.A1B2"),
        sleepSample(1, "2024-03-10T03:00:00Z", "2024-03-10T03:10:00Z", "com.apple.health"),
        // Another app's core sleep, and deep sleep typed in by hand: neither counts.
        sleepSample(3, "2024-03-10T03:10:00Z", "2024-03-10T05:10:00Z", "com.sleepcycle.app"), [] {
          nlohmann::json manual = sleepSample(4, "2024-03-10T04:00:00Z", "2024-03-10T05:00:00Z");
          manual["metadata"] = {{"HKWasUserEntered", true}};
          return manual;
        }()}}};
  {
    SleepTestStore store(storeFile, {.osVersion = {16, 0, 0}});
    const SleepResult result = requestSleep(testing::utcDate(2024, 3, 10, 8, 30));
    EXPECT_EQ(nightOf(result), (SleepDurationRelatedData{
                                   .sleepStartDatetime = testing::utcDate(2024, 3, 9, 22),
                                   .sleepEndDatetime = testing::utcDate(2024, 3, 10, 3, 10),
                                   .sleepDate = testing::utcDate(2024, 3, 10, 3, 10),
                                   .sleepDurationSeconds = 7200 + 3600 + 1800 + 600,
                                   .timeInBedSeconds = 28800,
                                   .lightSleepDurationSeconds = 7200,
                                   .remSleepDurationSeconds = 1800,
                                   .deepSleepDurationSeconds = 3600,
                                   .timeToFallAsleepSeconds = 0,
                                   .timeAwakeDuringSleepSeconds = 600,
                               }));
  }
  {
    // Before 16.0 core, deep and REM samples are not understood and are left out.
    SleepTestStore store(storeFile, {.osVersion = {15, 7, 9}});
    const SleepDurationRelatedData night =
        nightOf(requestSleep(testing::utcDate(2024, 3, 10, 8, 30)));
    EXPECT_EQ(night.sleepDurationSeconds, 600);
    EXPECT_EQ(night.lightSleepDurationSeconds + night.deepSleepDurationSeconds +
                  night.remSleepDurationSeconds,
              0);
    EXPECT_EQ(night.timeInBedSeconds, 28800);
    EXPECT_EQ(night.timeAwakeDuringSleepSeconds, 600);
  }
}

TEST(SleepRepositoryTest, OverlappingSamplesOfTwoDevicesAreBothCounted) {
  SleepTestStore store(nlohmann::json{
      {"samples",
       {sleepSample(0, "2024-03-09T23:00:00Z", "2024-03-10T07:00:00Z", "com.apple.health.Watch"),
        sleepSample(0, "2024-03-09T23:00:00Z", "2024-03-10T07:00:00Z", "com.apple.health.Phone"),
        sleepSample(1, "2024-03-10T00:00:00Z", "2024-03-10T01:00:00Z", "com.apple.health.Watch"),
        sleepSample(1, "2024-03-10T00:30:00Z", "2024-03-10T01:30:00Z",
                    "com.apple.health.Phone")}}});
  const SleepDurationRelatedData night = nightOf(requestSleep(testing::utcDate(2024, 3, 10)));
  EXPECT_EQ(night.timeInBedSeconds, 2 * 28800);
  EXPECT_EQ(night.sleepDurationSeconds, 2 * 3600);
}

TEST(SleepRepositoryTest, ANightWithoutUsableSamplesIsAnEmptyDocumentAtNow) {
  const Date now = testing::utcDate(2024, 3, 10, 9, 15, 30.5);
  // No sample in the night, and only another app's samples: both give a zero night ending now.
  for (const nlohmann::json& samples :
       {nlohmann::json::array(),
        nlohmann::json::array({sleepSample(1, "2024-03-10T00:00:00Z", "2024-03-10T05:00:00Z",
                                           "com.example.sleep")})}) {
    SleepTestStore store(nlohmann::json{{"samples", samples}}, {.now = now});
    const SleepResult result = requestSleep(testing::utcDate(2024, 3, 10, 8));
    EXPECT_EQ(nightOf(result),
              (SleepDurationRelatedData{
                  .sleepStartDatetime = now, .sleepEndDatetime = now, .sleepDate = now}));
    EXPECT_EQ(result.value()->summaries.sleepRelatedData.metadata.datetime, now);
    EXPECT_EQ(result.value()->dataStructure, "sleep_health");
    EXPECT_EQ(result.value()->version, 1);
  }
}

TEST(SleepRepositoryTest, TheRequestedInstantIsStoredAsGivenAlsoWhenItMovesBack) {
  SleepTestStore store(nlohmann::json{{"samples", nlohmann::json::array()}},
                       {.timeZone = "Europe/Berlin"});
  EXPECT_EQ(storedSleepDate(), std::nullopt);
  const Date later = store.device().localDate(2024, 3, 10, 8, 30, 15.25);
  ASSERT_TRUE(requestSleep(later).isSuccess());
  EXPECT_EQ(storedSleepDate(), later);
  const Date earlier = store.device().localDate(2024, 1, 5, 23, 59);
  ASSERT_TRUE(requestSleep(earlier).isSuccess());
  EXPECT_EQ(storedSleepDate(), earlier);
  // The other kinds' entries are not the repository's business.
  EXPECT_EQ(ExtractionLastDateStorage().readLastDate(VelkDataType::physicalSummary), std::nullopt);
}

TEST(SleepRepositoryTest, AStoreWithoutAListOrWithForeignSamplesGivesNoDocumentButMovesTheDate) {
  const Date date = testing::utcDate(2024, 3, 10, 8, 30);
  {
    SleepTestStore store(nlohmann::json{{"samples", nlohmann::json::array()}}, {},
                         [](ingest::StoreFileContents& contents) {
                           contents.settings.typesAnsweringWithoutSamples.insert(kSleepType);
                         });
    const SleepResult result = requestSleep(date);
    ASSERT_TRUE(result.isSuccess());
    EXPECT_EQ(result.value(), std::nullopt);
    EXPECT_EQ(storedSleepDate(), date);
  }
  {
    // A list that holds a sample of another kind is not taken at all.
    nlohmann::json quantity = sleepSample(1, "2024-03-10T01:00:00Z", "2024-03-10T02:00:00Z");
    quantity["kind"] = "quantity";
    quantity["unit"] = "count";
    SleepTestStore store(nlohmann::json{
        {"samples", {sleepSample(1, "2024-03-10T02:00:00Z", "2024-03-10T03:00:00Z"), quantity}}});
    const SleepResult result = requestSleep(date);
    ASSERT_TRUE(result.isSuccess());
    EXPECT_EQ(result.value(), std::nullopt);
    EXPECT_EQ(storedSleepDate(), date);
  }
}

TEST(SleepRepositoryTest, AStoreErrorIsPassedOnAsTheSameErrorAndTheDateStaysPut) {
  SleepTestStore store(
      nlohmann::json{{"query_errors", {{kSleepType, {{"code", 5}, {"message", "denied"}}}}},
                     {"samples", nlohmann::json::array()}});
  const Date before = testing::utcDate(2024, 2, 1);
  ExtractionLastDateStorage().storeLastDate(before, VelkDataType::sleepSummary);

  const SleepResult result = requestSleep(testing::utcDate(2024, 3, 10));
  ASSERT_TRUE(result.isFailure());
  const std::optional<Error> storeError = store.database().queryError(kSleepType);
  ASSERT_TRUE(storeError.has_value());
  EXPECT_TRUE(result.error().isSameInstance(*storeError));
  EXPECT_EQ(storedSleepDate(), before);
}

TEST(SleepRepositoryTest, AnUnknownSleepTypeFailsAtOnceOnTheCallersThread) {
  SleepTestStore store(nlohmann::json{{"unknown_types", {kSleepType}}});
  const auto repository = SleepRepository::make();
  Completions<SleepResult> completions;
  repository->getSleepData(testing::utcDate(2024, 3, 10), completions.completion());
  ASSERT_EQ(completions.count(), 1u);  // before getSleepData returned
  const SleepResult result = *completions.wait();
  ASSERT_TRUE(result.isFailure());
  EXPECT_TRUE(errorIs(result.error(), AppleHealthErrors::sampleTypeNotAvailable));
  EXPECT_EQ(storedSleepDate(), std::nullopt);
}

}  // namespace
}  // namespace velk
