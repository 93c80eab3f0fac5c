// Sample queries, statistics and the merging of overlapping sources, against store-file databases.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "support/StoreFixture.h"
#include "support/TestDevice.h"
#include "velk/platform/HKHealthStore.h"
#include "velk/platform/HKObjectType.h"
#include "velk/platform/HealthDatabase.h"
#include "velk/platform/SourcePriority.h"

namespace velk::platform {
namespace {

using testing::utcDate;

constexpr const char* kSteps = "HKQuantityTypeIdentifierStepCount";
constexpr const char* kEnergy = "HKQuantityTypeIdentifierActiveEnergyBurned";
constexpr const char* kSleep = "HKCategoryTypeIdentifierSleepAnalysis";
constexpr const char* kPhone = "com.apple.health.device.iphone";
constexpr const char* kWatch = "com.apple.health.device.apple-watch";
constexpr const char* kApp = "export.source.pedometer";
constexpr const char* kByHand = R"(, "metadata": {"HKWasUserEntered": true})";

/// A time stamp of 10 March 2024 in UTC, as store files write them.
std::string at(int hour, int minute, int second = 0) {
  char text[32];
  std::snprintf(text, sizeof text, "2024-03-10T%02d:%02d:%02dZ", hour, minute, second);
  return text;
}

std::string sample(const char* type, const std::string& start, const std::string& end, double value,
                   const std::string& more = "") {
  return R"({"type": ")" + std::string(type) + R"(", "start": ")" + start + R"(", "end": ")" + end +
         R"(", "value": )" + std::to_string(value) + more + "}";
}

std::string fromSource(const char* source, const std::string& start, const std::string& end,
                       double value, const char* more = "") {
  return sample(kSteps, start, end, value, R"(, "source": ")" + std::string(source) + '"' + more);
}

/// Store-file text; `more` holds further top-level fields, each followed by a comma.
std::string store(const std::vector<std::string>& samples, const std::string& more = "") {
  std::string text = "{" + more + R"("samples": [)";
  for (std::size_t i = 0; i < samples.size(); ++i) {
    text += (i ? "," : "") + samples[i];
  }
  return text + "]}";
}

HKObjectType quantityType(const char* identifier) {
  return HKObjectType::quantityTypeForIdentifier(identifier).value();
}

std::vector<double> values(const HKSampleList& samples) {
  std::vector<double> result;
  for (const auto& sample : samples) {
    auto quantity = std::dynamic_pointer_cast<const HKQuantitySample>(sample);
    EXPECT_TRUE(quantity);
    result.push_back(quantity ? quantity->quantity().doubleValueForUnit(HKUnit::countUnit()) : -1);
  }
  return result;
}

const NSSortDescriptor kNewestFirst{HKSampleSortIdentifierStartDate, false};

TEST(HealthStoreTest, LimitKeepsTheNewestAndEqualStartsKeepStoredOrder) {
  std::vector<std::string> samples;
  for (int i = 0; i < 25; ++i) {  // stored out of time order
    samples.push_back(sample(kSteps, at(1 + (i * 7) % 20, i), at(1 + (i * 7) % 20, i, 30), i));
  }
  samples.push_back(sample(kSteps, at(23, 0), at(23, 0, 30), 100));
  samples.push_back(sample(kSteps, at(23, 0), at(23, 0, 30), 101));  // same start as the one before
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(store(samples))});
  HKHealthStore healthStore;

  const auto ten =
      testing::runSampleQuery(healthStore, quantityType(kSteps), std::nullopt, 10, {kNewestFirst});
  ASSERT_TRUE(ten.samples);
  ASSERT_EQ(ten.samples->size(), 10u);
  EXPECT_EQ(values(*ten.samples)[0], 100);
  EXPECT_EQ(values(*ten.samples)[1], 101);
  for (std::size_t i = 1; i < ten.samples->size(); ++i) {
    EXPECT_GE((*ten.samples)[i - 1]->startDate(), (*ten.samples)[i]->startDate());
  }
  // Nothing older than the tenth was dropped in favour of a newer one.
  const auto all =
      testing::runSampleQuery(healthStore, quantityType(kSteps), std::nullopt, 0, {kNewestFirst});
  ASSERT_EQ(all.samples->size(), 27u);
  EXPECT_EQ((*all.samples)[9]->startDate(), (*ten.samples)[9]->startDate());
  const auto stored = testing::runSampleQuery(healthStore, quantityType(kSteps), std::nullopt);
  EXPECT_EQ(values(*stored.samples)[0], 0);  // no sort descriptor: stored order
}

TEST(HealthStoreTest, DatePredicateMatchesOverlapsAndDropsHandEnteredSamples) {
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(store({
                                  sample(kSteps, at(7, 0), at(7, 0, 30), 1),    // ends before
                                  sample(kSteps, at(7, 59), at(7, 59, 30), 2),  // ends inside
                                  sample(kSteps, at(9, 0), at(9, 0, 30), 3),    // starts at the end
                                  sample(kSteps, at(8, 30), at(8, 30, 30), 4, kByHand),
                                  sample(kSteps, at(8, 31), at(8, 31, 30), 5,
                                         R"(, "metadata": {"HKWasUserEntered": false, "o": 1})"),
                              }))});
  HKHealthStore healthStore;
  const auto steps = [&](const NSPredicate& predicate) {
    return values(*testing::runSampleQuery(healthStore, quantityType(kSteps), predicate).samples);
  };
  const auto range =
      HKQuery::predicateForSamples(utcDate(2024, 3, 10, 7, 59, 30), utcDate(2024, 3, 10, 9));
  const auto manual = NSPredicate::metadataValueIsNotYes(HKMetadataKeyWasUserEntered);
  EXPECT_EQ(steps(range), (std::vector<double>{2, 4, 5}));
  EXPECT_EQ(steps(NSCompoundPredicate::andPredicateWithSubpredicates({range, manual})),
            (std::vector<double>{2, 5}));
  // No start: only "starts before the end" remains.
  EXPECT_EQ(steps(HKQuery::predicateForSamples(std::nullopt, utcDate(2024, 3, 10, 8))),
            (std::vector<double>{1, 2}));
}

TEST(HealthStoreTest, PassesErrorsWrongKindsAndMissingDataThrough) {
  auto database = testing::databaseFromJson(R"({
    "unknown_types": ["HKQuantityTypeIdentifierAppleStandTime"],
    "query_errors": {"HKQuantityTypeIdentifierHeartRate": {"code": 5, "message": "Not determined"}},
    "samples": [{"type": "HKCategoryTypeIdentifierSleepAnalysis", "kind": "quantity",
                 "start": "2024-03-10T01:00:00+01:00", "end": "2024-03-10T02:00:00+01:00",
                 "value": 3, "unit": "count"}]})");
  {
    testing::TestDevice device({.healthDatabase = database});
    HKHealthStore healthStore;
    EXPECT_TRUE(HKHealthStore::isHealthDataAvailable());
    // Unknown to this store, a category identifier, unknown to any store.
    for (const char* identifier :
         {"HKQuantityTypeIdentifierAppleStandTime", kSleep, "HKQuantityTypeIdentifierMadeUp"})
      EXPECT_FALSE(HKObjectType::quantityTypeForIdentifier(identifier)) << identifier;
    EXPECT_TRUE(HKObjectType::workoutType());
    EXPECT_TRUE(
        HKObjectType::characteristicTypeForIdentifier("HKCharacteristicTypeIdentifierDateOfBirth"));

    const auto sleep = HKObjectType::categoryTypeForIdentifier(kSleep).value();
    const auto wrongKind = testing::runSampleQuery(healthStore, sleep, std::nullopt);
    ASSERT_EQ(wrongKind.samples->size(), 1u);
    EXPECT_TRUE(std::dynamic_pointer_cast<const HKQuantitySample>(wrongKind.samples->front()));

    const auto heartRate = quantityType("HKQuantityTypeIdentifierHeartRate");
    const auto first = testing::runSampleQuery(healthStore, heartRate, std::nullopt);
    const auto second = testing::runSampleQuery(healthStore, heartRate, std::nullopt);
    EXPECT_FALSE(first.samples);
    ASSERT_TRUE(first.error && second.error);
    EXPECT_EQ(first.error->domain(), kHealthKitErrorDomain);
    EXPECT_EQ(first.error->code(), 5);
    EXPECT_TRUE(first.error->isSameInstance(*second.error));
  }
  testing::TestDevice device;  // no database at all: everything is refused
  EXPECT_FALSE(HKHealthStore::isHealthDataAvailable());
  HKHealthStore healthStore;
  const auto answer = testing::runSampleQuery(healthStore, quantityType(kSteps), std::nullopt);
  ASSERT_TRUE(answer.error);
  EXPECT_EQ(answer.error->code(), 1);
  EXPECT_TRUE(healthStore.biologicalSex().isFailure());
}

TEST(HealthStoreTest, AnswersAuthorisationAndCharacteristicsFromTheDatabase) {
  auto database = testing::databaseFromJson(R"({
    "authorization": {"success": false, "error": {"code": 4, "message": "Denied"}},
    "date_of_birth": "1990-06-15", "biological_sex": {"error": {"code": 6, "message": "Locked"}}})");
  testing::TestDevice device({.healthDatabase = database});
  HKHealthStore healthStore;

  testing::Awaited<std::pair<bool, std::optional<Error>>> answer;
  healthStore.requestAuthorization(std::nullopt,
                                   {quantityType(kSteps), HKObjectType::workoutType().value()},
                                   [set = answer.setter()](bool ok, std::optional<Error> error) {
                                     set({ok, std::move(error)});
                                   });
  const auto got = answer.get();
  ASSERT_TRUE(got);
  EXPECT_FALSE(got->first);
  ASSERT_TRUE(got->second);
  EXPECT_EQ(got->second->message(), "Denied");
  ASSERT_EQ(database->authorizationRequests().size(), 1u);
  EXPECT_EQ(database->authorizationRequests()[0],
            (std::set<std::string>{kSteps, std::string(HKWorkoutTypeIdentifier)}));

  const auto birth = healthStore.dateOfBirthComponents();
  ASSERT_TRUE(birth.isSuccess());
  EXPECT_EQ(birth.value(), (DateComponents{1990, 6, 15, {}, {}, {}, {}}));
  const auto sex = healthStore.biologicalSex();
  ASSERT_TRUE(sex.isFailure());
  EXPECT_EQ(sex.error().code(), 6);
}

struct Interval {
  Date start, end;
  std::optional<double> sum;
};

/// The day sums of `identifier` in the device's calendar, anchored at `anchor`, from `from` to
/// `to`.
std::vector<Interval> dailySums(const char* identifier, HKUnit unit, Date anchor, Date from,
                                Date to, std::optional<NSPredicate> predicate = std::nullopt) {
  const auto answer = testing::runCollectionQuery(
      HKHealthStore(), HKStatisticsCollectionQuery(quantityType(identifier), std::move(predicate),
                                                   HKStatisticsOptions::cumulativeSum, anchor,
                                                   DateComponents{{}, {}, 1, {}, {}, {}, {}}));
  EXPECT_FALSE(answer.error);
  std::vector<Interval> result;
  if (!answer.collection) {
    ADD_FAILURE() << "no collection";
    return result;
  }
  answer.collection->enumerateStatistics(from, to, [&](const HKStatistics& statistics) {
    const auto sum = statistics.sumQuantity();
    result.push_back({statistics.startDate(), statistics.endDate(),
                      sum ? std::optional(sum->doubleValueForUnit(unit)) : std::nullopt});
  });
  return result;
}

const std::string kEnergyStore = store({
    sample(kEnergy, "2024-03-09T23:50:00Z", at(0, 10), 100),
    sample(kEnergy, at(0, 0), at(0, 0), 5),  // zero length: counts where it starts
    sample(kEnergy, at(12, 0), at(12, 0), 4.184, R"(, "unit": "kJ")"),
    sample(kEnergy, at(13, 0), at(14, 0), 7, kByHand),
});

TEST(StatisticsTest, ProratesAcrossIntervalsAndYieldsEmptyOnesWithoutASum) {
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(kEnergyStore)});
  const auto kcal = HKUnit::kilocalorieUnit();
  const auto days = dailySums(kEnergy, kcal, utcDate(2024, 3, 10), utcDate(2024, 3, 9, 12),
                              utcDate(2024, 3, 11, 23));
  ASSERT_EQ(days.size(), 3u);
  EXPECT_EQ(days[0].start, utcDate(2024, 3, 9));
  EXPECT_EQ(days[0].end, utcDate(2024, 3, 10));
  EXPECT_DOUBLE_EQ(days[0].sum.value(), 50.0);  // half of the midnight sample
  EXPECT_DOUBLE_EQ(days[1].sum.value(),
                   50.0 + 5 + 1.0 + 7);  // the rest, the 5, 1 kcal in kJ, the 7
  EXPECT_FALSE(days[2].sum);             // no data: no sum, not 0
  // The hand-entered sample drops out when the predicate says so.
  EXPECT_DOUBLE_EQ(dailySums(kEnergy, kcal, utcDate(2024, 3, 10), utcDate(2024, 3, 10),
                             utcDate(2024, 3, 10, 23, 59, 59),
                             NSPredicate::metadataValueIsNotYes(HKMetadataKeyWasUserEntered))
                       .at(0)
                       .sum.value(),
                   56.0);
}

TEST(StatisticsTest, DayIntervalsFollowTheDeviceCalendarAcrossAClockChange) {
  testing::TestDevice device(
      {.timeZone = "Europe/Berlin", .healthDatabase = testing::databaseFromJson(kEnergyStore)});
  const auto day = [&](int month, int date, int hour) {
    const Date moment = device.localDate(2024, month, date, hour, 30);
    const auto days = dailySums(kEnergy, HKUnit::kilocalorieUnit(), device.localDate(2024, 3, 30),
                                moment, moment);
    EXPECT_EQ(days.size(), 1u);
    return days.empty() ? Interval{} : days[0];
  };
  // 31 March 2024 in Berlin has 23 hours.
  const Interval clockChange = day(3, 31, 12);
  EXPECT_EQ(clockChange.start, device.localDate(2024, 3, 31));
  EXPECT_DOUBLE_EQ(clockChange.end.timeIntervalSince(clockChange.start), 23 * 3600.0);
  // Stepping backwards from the anchor works as well.
  EXPECT_EQ(day(3, 10, 0).start, device.localDate(2024, 3, 10));
}

/// The step sums of 9 and 10 March 2024 (UTC) when these samples overlap.
std::vector<std::optional<double>> mergedSteps(const std::vector<std::string>& samples,
                                               const std::string& more = "") {
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(store(samples, more))});
  std::vector<std::optional<double>> sums;
  for (const auto& day : dailySums(kSteps, HKUnit::countUnit(), utcDate(2024, 3, 9),
                                   utcDate(2024, 3, 9), utcDate(2024, 3, 10, 12))) {
    sums.push_back(day.sum);
  }
  return sums;
}

void expectSums(const std::vector<std::optional<double>>& got,
                const std::vector<std::optional<double>>& expected) {
  ASSERT_EQ(got.size(), expected.size());
  for (std::size_t i = 0; i < got.size(); ++i) {
    ASSERT_EQ(got[i].has_value(), expected[i].has_value()) << "day " << i;
    if (expected[i]) {
      EXPECT_DOUBLE_EQ(*got[i], *expected[i]) << "day " << i;
    }
  }
}

TEST(SourceMergeTest, OverlapsCountOnceByHandThenListedThenWatchThenPhoneThenOtherApps) {
  const std::vector<std::string> devices{fromSource(kPhone, at(8, 0), at(8, 10), 1000),
                                         fromSource(kWatch, at(8, 5), at(8, 15), 600),
                                         fromSource(kApp, at(8, 0), at(8, 20), 2000)};
  // The watch counts all its 600; the phone only its first five minutes (500); the app only
  // the last five minutes, where nobody else counted (500).
  expectSums(mergedSteps(devices), {std::nullopt, 600 + 500 + 500});
  // A listed source goes first: now the phone counts in full, the watch after 08:10.
  expectSums(mergedSteps(devices, R"("source_priority": [")" + std::string(kPhone) + R"("],)"),
             {std::nullopt, 1000 + 300 + 500});
  // Hand-entered steps win over every device; the same app's measured ones stay below the watch.
  // An instant counts unless a more trusted source covers it.
  expectSums(mergedSteps({fromSource(kWatch, at(8, 0), at(8, 20), 1000),
                          fromSource(kApp, at(8, 0), at(8, 10), 300, kByHand),
                          fromSource(kApp, at(8, 10), at(8, 20), 999),
                          fromSource(kApp, at(8, 15), at(8, 15), 5),  // covered by the watch
                          fromSource(kApp, at(9, 30), at(9, 30), 7),  // alone
                          fromSource(kApp, at(8, 17), at(8, 17), 11, kByHand)}),
             {std::nullopt, 300 + 500 + 7 + 11});
  // Proration across midnight holds while sources overlap: the phone's 1,200 steps span 23:50 to
  // 00:10, the watch's 400 span 23:55 to 00:05.
  expectSums(mergedSteps({fromSource(kPhone, "2024-03-09T23:50:00Z", at(0, 10), 1200),
                          fromSource(kWatch, "2024-03-09T23:55:00Z", at(0, 5), 400)}),
             {300 + 200, 200 + 300});
  // One source is its plain sum even where its samples overlap, to the same bits.
  const auto plain = mergedSteps({fromSource(kPhone, at(8, 0), at(9, 0), 700),
                                  fromSource(kPhone, at(8, 30), at(8, 40), 0.1),
                                  fromSource(kPhone, at(8, 30), at(8, 40), 0.2)});
  EXPECT_EQ(plain.at(1).value(), 700 + 0.1 + 0.2);
}

TEST(SourceMergeTest, TheOrderIsTotalAndIndependentOfSampleOrder) {
  const SourcePriority priority({"b.app"});
  const std::vector<SampleOrigin> expected{
      {InternedString("z.app"), true},   // by hand
      {InternedString("b.app"), false},  // listed
      {InternedString("com.apple.health.device.my-watch"), false},
      {InternedString("com.apple.health"), false},
      {InternedString("com.apple.health.device.iphone"), false},
      {InternedString("a.app"), false}};
  for (std::size_t i = 0; i < expected.size(); ++i) {
    for (std::size_t j = 0; j < expected.size(); ++j) {
      EXPECT_EQ(priority.precedes(expected[i], expected[j]), i < j) << i << " " << j;
    }
  }
}

TEST(HealthStoreConcurrencyTest, AnswersArriveOffTheCallerThreadWhileManyThreadsAsk) {
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(kEnergyStore)});
  std::vector<std::thread> askers;
  std::atomic<int> offThread{0};
  for (int t = 0; t < 4; ++t) {
    askers.emplace_back([&] {
      const HKHealthStore healthStore;  // one store object per asker, one database behind them
      for (int i = 0; i < 20; ++i) {
        const auto answer =
            testing::runSampleQuery(healthStore, quantityType(kEnergy), std::nullopt);
        offThread +=
            answer.samples && answer.samples->size() == 4 && !answer.answeredOnCallerThread;
      }
    });
  }
  for (auto& asker : askers) {
    asker.join();
  }
  EXPECT_EQ(offThread.load(), 80);
}

}  // namespace
}  // namespace velk::platform
