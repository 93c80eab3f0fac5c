// The sleep summary: the night's window, which samples count and how, what the repository stores
// and when it completes, and the builder's sums.
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "healthstore/AppleHealthErrors.h"
#include "platform/HealthDatabase.h"
#include "sleep/SleepDataDurationBuilder.h"
#include "sleep/SleepRepository.h"
#include "sleep/SleepTestStore.h"
#include "support/TestDevice.h"
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

TEST(SleepRepositoryTest, TheNightRunsTwentyFourHoursBackFromTheDaysNoonAcrossAClockChange) {
  // 31 March 2024 in Berlin loses an hour, so its night starts at 11:00 the day before
  // (VelkPredicateBuilderTest has a night that gains one). Only the 60 s and 660 s samples
  // overlap: an end exactly at the night's start counts, a start exactly at its end does not.
  testing::SleepTestStore store(
      Json{{"samples",
            {sleepSample(0, "2024-03-30T10:50:00+01:00", "2024-03-30T10:59:59+01:00"),
             sleepSample(0, "2024-03-30T10:59:00+01:00", "2024-03-30T11:00:00+01:00"),
             sleepSample(0, "2024-03-31T11:59:00+02:00", "2024-03-31T12:10:00+02:00"),
             sleepSample(0, "2024-03-31T12:00:00+02:00", "2024-03-31T12:30:00+02:00")}}},
      {.timeZone = "Europe/Berlin"});
  for (int hour : {0, 8, 23}) {  // any time of the day names the same night
    EXPECT_EQ(
        nightOf(requestSleep(store.device().localDate(2024, 3, 31, hour, 59))).timeInBedSeconds,
        720)
        << hour;
  }
}

TEST(SleepRepositoryTest, HealthAppSamplesOnlyStagesFromSystem16AndOverlapsCountedTwice) {
  // Values outside the stages, 6 and -1, are dropped; if either counted, the night would end
  // later. The deep sample from 01:00 to 02:00 is stored the wrong way round (end before start)
  // and still counts its hour.
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
        sleepSample(6, "2024-03-10T03:10:00Z", "2024-03-10T03:20:00Z"),
        sleepSample(-1, "2024-03-10T03:20:00Z", "2024-03-10T03:30:00Z"),
        sleepSample(3, "2024-03-10T03:10:00Z", "2024-03-10T05:10:00Z", "com.sleepcycle.app"),
        sleepSample(3, "2024-03-10T03:10:00Z", "2024-03-10T05:10:00Z", "com.apple.Health"),
        manual}}};
  const auto reverseTheDeepHour = [](ingest::StoreFileContents& contents) {
    for (platform::SampleRecord& sample : contents.samples) {
      if (sample.value == 4 && sample.start == testing::utcDate(2024, 3, 10, 1)) {
        std::swap(sample.start, sample.end);
      }
    }
  };
  const Date date = testing::utcDate(2024, 3, 10, 8, 30);
  const Date end = testing::utcDate(2024, 3, 10, 3, 10);
  {
    testing::SleepTestStore store(storeFile, {.osVersion = {16, 0, 0}}, reverseTheDeepHour);
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

// A repository that notes what the last-date storage holds when it builds the document; its
// requests note the same when they complete. All of it happens on the store's queue.
class WatchedRepository : public SleepRepository {
 public:
  using Events = std::vector<std::pair<std::string, std::optional<Date>>>;

  static std::shared_ptr<WatchedRepository> make() {
    return std::shared_ptr<WatchedRepository>(new WatchedRepository());
  }
  void buildSleepData(const std::optional<Samples>& samples,
                      const Completion& completion) const override {
    events.emplace_back("build", storedSleepDate());
    SleepRepository::buildSleepData(samples, completion);
  }
  /// One request, waited for: the events it caused, the completion's last.
  std::pair<SleepResult, Events> request(Date date) {
    return testing::firstAnswer<std::pair<SleepResult, Events>>([&](auto done) {
      getSleepData(date, [this, done](SleepResult result) {
        events.emplace_back("completion", storedSleepDate());
        done({std::move(result), events});
      });
    });
  }

  mutable Events events;
};

TEST(SleepRepositoryTest, ASuccessStoresTheDateBuildsThenCompletesAFailureKeepsTheEarlierDate) {
  const Date earlier = testing::utcDate(2024, 3, 1, 9);
  const Date date = testing::utcDate(2024, 3, 10, 8, 30);
  {
    testing::SleepTestStore store(
        Json{{"samples", {sleepSample(1, "2024-03-10T01:00:00Z", "2024-03-10T02:00:00Z")}}});
    ExtractionLastDateStorage().storeLastDate(earlier, VelkDataType::sleepSummary);
    const auto [result, events] = WatchedRepository::make()->request(date);
    EXPECT_EQ(nightOf(result).sleepDurationSeconds, 3600);
    EXPECT_EQ(events, (WatchedRepository::Events{{"build", date}, {"completion", date}}));
  }
  {
    // The store's error comes back as it is; nothing is built or stored.
    testing::SleepTestStore store(
        Json{{"query_errors", {{kSleepType, {{"code", 4}, {"message", "locked"}}}}}});
    ExtractionLastDateStorage().storeLastDate(earlier, VelkDataType::sleepSummary);
    const auto [result, events] = WatchedRepository::make()->request(date);
    ASSERT_TRUE(result.isFailure());
    EXPECT_EQ(result.error().code(), 4);
    EXPECT_EQ(events, (WatchedRepository::Events{{"completion", earlier}}));
  }
  // A type the store does not know fails at once, on the caller's thread.
  testing::SleepTestStore store(Json{{"unknown_types", {kSleepType}}});
  ExtractionLastDateStorage().storeLastDate(earlier, VelkDataType::sleepSummary);
  testing::Completions<SleepResult> completions;
  SleepRepository::make()->getSleepData(date, completions.completion());
  ASSERT_EQ(completions.values().size(), 1u);
  EXPECT_TRUE(errorIs(completions.values()[0].error(), AppleHealthErrors::sampleTypeNotAvailable));
  EXPECT_EQ(storedSleepDate(), earlier);
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

SleepAnalysis record(double start, double seconds, SleepEvent event) {
  return {Date::fromReferenceSeconds(start), Date::fromReferenceSeconds(start + seconds), event,
          seconds};
}

SleepDataDuration build(const std::vector<SleepAnalysis>& analyses) {
  testing::TestDevice device({.now = Date::fromReferenceSeconds(9e8)});
  return SleepDataDurationBuilder().buildSleepDataDuration(analyses);
}

TEST(SleepDataDurationBuilderTest, SumsPerStateTruncatedOnceEndsWithTheLastStartEmptyIsNow) {
  // Newest first, as the store answers. The in-bed record outlasts every later one, yet the night
  // ends with the record that starts last. The two awake records sum to 3601.2 s: truncating each
  // first would give 3600. The two identical REM records overlap and both count.
  EXPECT_EQ(
      build({record(30000, 300, SleepEvent::aSleep), record(25000, 1800.6, SleepEvent::aWake),
             record(20000, 1800.6, SleepEvent::aWake), record(10000, 900, SleepEvent::asleepREM),
             record(10000, 900, SleepEvent::asleepREM),
             record(5000, 5400.7, SleepEvent::asleepDeep),
             record(1000, 3000, SleepEvent::asleepCore), record(0, 40000, SleepEvent::inBed)}),
      SleepDataDuration(Date::fromReferenceSeconds(0), Date::fromReferenceSeconds(30300),
                        300 + 1800 + 5400.7 + 3000, 40000, 3000, 1800, 5400.7, 0, 3601.2));
  // Of records with equal starts, the later one in the input ends the night.
  EXPECT_EQ(build({record(0, 100, SleepEvent::inBed), record(0, 900, SleepEvent::inBed)}).end,
            Date::fromReferenceSeconds(900));
  EXPECT_EQ(build({record(0, 900, SleepEvent::inBed), record(0, 100, SleepEvent::inBed)}).end,
            Date::fromReferenceSeconds(100));
  const Date now = Date::fromReferenceSeconds(9e8);
  EXPECT_EQ(build({}), SleepDataDuration(now, now, 0, 0, 0, 0, 0, 0, 0));
}

TEST(SleepDataDurationDeathTest, ATotalThatIsNoWholeNumberStopsTheProcess) {
  EXPECT_DEATH(SleepDataDuration({}, {}, 0, 0, 0, 0, 0, 0, std::numeric_limits<double>::infinity()),
               "not finite");
  EXPECT_DEATH(SleepDataDuration({}, {}, 0, 9223372036854775808.0, 0, 0, 0, 0, 0), "range");
}

}  // namespace
}  // namespace velk
