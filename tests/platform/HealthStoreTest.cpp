// The substitute health store: sample queries, statistics and the merging of overlapping
// sources against store-file databases, and its units.
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "platform/HKHealthStore.h"
#include "platform/HKObjectType.h"
#include "platform/HKQuantity.h"
#include "platform/HKUnit.h"
#include "platform/HealthDatabase.h"
#include "support/StoreFixture.h"
#include "support/TestDevice.h"

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
  for (std::size_t i = 0; i < samples.size(); ++i)
    text += (i ? "," : "") + samples[i];
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

/// Steps of 10 March 2024. Around 07:59:30 to 09:00: one ending before, one ending inside, one
/// starting at the end, one typed in by hand, one marked as not. Later: twelve stored out of time
/// order (hour 10 + k holds the value 10 + 7k mod 12), then two with the same start.
std::string stepStore() {
  std::vector<std::string> samples{sample(kSteps, at(7, 0), at(7, 0, 30), 1),
                                   sample(kSteps, at(7, 59), at(7, 59, 30), 2),
                                   sample(kSteps, at(9, 0), at(9, 0, 30), 3),
                                   sample(kSteps, at(8, 30), at(8, 30, 30), 4, kByHand),
                                   sample(kSteps, at(8, 31), at(8, 31, 30), 5,
                                          R"(, "metadata": {"HKWasUserEntered": false, "o": 1})")};
  for (int i = 0; i < 12; ++i)
    samples.push_back(sample(kSteps, at(10 + i * 7 % 12, i), at(10 + i * 7 % 12, i, 30), 10 + i));
  samples.push_back(sample(kSteps, at(23, 0), at(23, 0, 30), 100));
  samples.push_back(sample(kSteps, at(23, 0), at(23, 0, 30), 101));
  return store(samples);
}

TEST(HealthStoreTest, SampleQueriesMatchOverlapsDropHandEntriesSortAndLimit) {
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(stepStore())});
  const HKHealthStore healthStore;
  const auto steps = [&](std::optional<NSPredicate> predicate, std::int64_t limit = 0,
                         std::vector<NSSortDescriptor> sort = {}) {
    const auto answer = testing::runSampleQuery(healthStore, quantityType(kSteps),
                                                std::move(predicate), limit, std::move(sort));
    EXPECT_TRUE(answer.samples);
    return answer.samples ? values(*answer.samples) : std::vector<double>{};
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
  // The ten newest, equal starts in stored order; without a sort descriptor, stored order.
  EXPECT_EQ(steps(std::nullopt, 10, {kNewestFirst}),
            (std::vector<double>{100, 101, 15, 20, 13, 18, 11, 16, 21, 14}));
  const auto all = steps(std::nullopt);
  ASSERT_EQ(all.size(), 19u);
  EXPECT_EQ(all[0], 1);
  EXPECT_EQ(all[5], 10);
}

TEST(HealthStoreTest, TypesTheStoreCannotNameAndADeviceWithoutDataAreRefused) {
  testing::TestDevice device;  // no database at all
  for (const char* identifier : {kSleep, "HKQuantityTypeIdentifierMadeUp"})
    EXPECT_FALSE(HKObjectType::quantityTypeForIdentifier(identifier)) << identifier;
  EXPECT_FALSE(HKHealthStore::isHealthDataAvailable());
  HKHealthStore healthStore;
  const auto answer = testing::runSampleQuery(healthStore, quantityType(kSteps), std::nullopt);
  ASSERT_TRUE(answer.error);
  EXPECT_EQ(answer.error->code(), 1);
  EXPECT_TRUE(healthStore.biologicalSex().isFailure());
}

struct Interval {
  Date start, end;
  std::optional<double> sum;
};

/// The day sums of `identifier` in the device's calendar, anchored at `anchor`, from `from` to
/// `to`.
std::vector<Interval> dailySums(const char* identifier, HKUnit unit, Date anchor, Date from,
                                Date to) {
  const auto answer = testing::runCollectionQuery(
      HKHealthStore(), HKStatisticsCollectionQuery(quantityType(identifier), std::nullopt,
                                                   HKStatisticsOptions::cumulativeSum, anchor,
                                                   DateComponents{{}, {}, 1, {}, {}, {}, {}}));
  EXPECT_TRUE(answer.collection && !answer.error);
  std::vector<Interval> result;
  if (!answer.collection)
    return result;
  answer.collection->enumerateStatistics(from, to, [&](const HKStatistics& statistics) {
    const auto sum = statistics.sumQuantity();
    result.push_back({statistics.startDate(), statistics.endDate(),
                      sum ? std::optional(sum->doubleValueForUnit(unit)) : std::nullopt});
  });
  return result;
}

TEST(StatisticsTest, ProratesOverTheDeviceCalendarsDaysAndYieldsEmptyOnesWithoutASum) {
  const auto database = testing::databaseFromJson(store({
      sample(kEnergy, "2024-03-09T23:50:00Z", at(0, 10), 100),
      sample(kEnergy, at(0, 0), at(0, 0), 5),  // zero length: counts where it starts
      sample(kEnergy, at(12, 0), at(12, 0), 4.184, R"(, "unit": "kJ")"),
  }));
  {
    testing::TestDevice device({.healthDatabase = database});
    const auto days = dailySums(kEnergy, HKUnit::kilocalorieUnit(), utcDate(2024, 3, 10),
                                utcDate(2024, 3, 9, 12), utcDate(2024, 3, 11, 23));
    ASSERT_EQ(days.size(), 3u);
    EXPECT_EQ(days[0].start, utcDate(2024, 3, 9));
    EXPECT_EQ(days[0].end, utcDate(2024, 3, 10));
    EXPECT_DOUBLE_EQ(days[0].sum.value(), 50.0);            // half of the midnight sample
    EXPECT_DOUBLE_EQ(days[1].sum.value(), 50.0 + 5 + 1.0);  // the rest, the 5, 1 kcal in kJ
    EXPECT_FALSE(days[2].sum);                              // no data: no sum, not 0
  }
  testing::TestDevice device({.timeZone = "Europe/Berlin", .healthDatabase = database});
  // Anchored at 00:30 on 30 March: the days before it count backwards from the anchor's day, and
  // each is a calendar day from midnight to midnight, whatever the anchor's time of day.
  const auto days =
      dailySums(kEnergy, HKUnit::kilocalorieUnit(), device.localDate(2024, 3, 30, 0, 30),
                device.localDate(2024, 3, 10), device.localDate(2024, 3, 31, 12));
  ASSERT_EQ(days.size(), 22u);
  EXPECT_EQ(days.front().start, device.localDate(2024, 3, 10));
  EXPECT_EQ(days.back().start, device.localDate(2024, 3, 31));
  // 31 March 2024 in Berlin has 23 hours.
  EXPECT_DOUBLE_EQ(days.back().end.timeIntervalSince(days.back().start), 23 * 3600.0);
}

using Sums = std::vector<std::optional<double>>;

/// The step sums of 9 and 10 March 2024 (UTC) when these samples overlap.
Sums mergedSteps(const std::vector<std::string>& samples, const std::string& more = "") {
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(store(samples, more))});
  Sums sums;
  for (const auto& day : dailySums(kSteps, HKUnit::countUnit(), utcDate(2024, 3, 9),
                                   utcDate(2024, 3, 9), utcDate(2024, 3, 10, 12))) {
    sums.push_back(day.sum);
  }
  return sums;
}

TEST(SourceMergeTest, OverlapsCountOnceByHandThenListedThenWatchThenPhoneThenOtherApps) {
  const std::vector<std::string> devices{fromSource(kPhone, at(8, 0), at(8, 10), 1000),
                                         fromSource(kWatch, at(8, 5), at(8, 15), 600),
                                         fromSource(kApp, at(8, 0), at(8, 20), 2000)};
  // The watch counts all its 600; the phone only its first five minutes (500); the app only
  // the last five minutes, where nobody else counted (500).
  EXPECT_EQ(mergedSteps(devices), (Sums{std::nullopt, 600 + 500 + 500}));
  // A listed source goes first: now the phone counts in full, the watch after 08:10.
  const auto listing = [](const char* source) {
    return R"("source_priority": [")" + std::string(source) + R"("],)";
  };
  EXPECT_EQ(mergedSteps(devices, listing(kPhone)), (Sums{std::nullopt, 1000 + 300 + 500}));
  // Hand-entered steps win over every source, the listed watch too; the same app's measured ones
  // stay below the watch. An instant counts unless a more trusted source covers it.
  EXPECT_EQ(mergedSteps({fromSource(kWatch, at(8, 0), at(8, 20), 1000),
                         fromSource(kApp, at(8, 0), at(8, 10), 300, kByHand),
                         fromSource(kApp, at(8, 10), at(8, 20), 999),
                         fromSource(kApp, at(8, 15), at(8, 15), 5),  // covered by the watch
                         fromSource(kApp, at(9, 30), at(9, 30), 7),  // alone
                         fromSource(kApp, at(8, 17), at(8, 17), 11, kByHand)},
                        listing(kWatch)),
            (Sums{std::nullopt, 300 + 500 + 7 + 11}));
  // Proration across midnight holds while sources overlap: the phone's 1,200 steps span 23:50 to
  // 00:10, the watch's 400 span 23:55 to 00:05.
  EXPECT_EQ(mergedSteps({fromSource(kPhone, "2024-03-09T23:50:00Z", at(0, 10), 1200),
                         fromSource(kWatch, "2024-03-09T23:55:00Z", at(0, 5), 400)}),
            (Sums{300 + 200, 200 + 300}));
  // One source is its plain sum even where its samples overlap, to the same bits.
  const auto plain = mergedSteps({fromSource(kPhone, at(8, 0), at(9, 0), 700),
                                  fromSource(kPhone, at(8, 30), at(8, 40), 0.1),
                                  fromSource(kPhone, at(8, 30), at(8, 40), 0.2)});
  EXPECT_EQ(plain.at(1).value(), 700 + 0.1 + 0.2);
  // Other apps of one rank go by bundle identifier, whichever sample is stored first.
  const std::vector<std::string> apps{fromSource("b.app", at(8, 0), at(8, 10), 200),
                                      fromSource("a.app", at(8, 0), at(8, 10), 100)};
  EXPECT_EQ(mergedSteps(apps), (Sums{std::nullopt, 100}));
  EXPECT_EQ(mergedSteps({apps[1], apps[0]}), (Sums{std::nullopt, 100}));
}

TEST(HealthStoreConcurrencyTest, AnswersArriveOffTheCallerThreadWhileManyThreadsAsk) {
  testing::TestDevice device({.healthDatabase = testing::databaseFromJson(stepStore())});
  std::vector<std::thread> askers;
  std::atomic<int> offThread{0};
  for (int t = 0; t < 4; ++t) {
    askers.emplace_back([&] {
      const HKHealthStore healthStore;  // one store object per asker, one database behind them
      for (int i = 0; i < 20; ++i) {
        const auto answer =
            testing::runSampleQuery(healthStore, quantityType(kSteps), std::nullopt);
        offThread +=
            answer.samples && answer.samples->size() == 19 && !answer.answeredOnCallerThread;
      }
    });
  }
  for (auto& asker : askers)
    asker.join();
  EXPECT_EQ(offThread.load(), 80);
}

HKUnit unit(const char* text) {
  auto parsed = HKUnit::unitFromString(text);
  EXPECT_TRUE(parsed) << text;
  return parsed.value_or(HKUnit::countUnit());
}

TEST(HKUnitTest, ConvertsWithinADimension) {
  EXPECT_NEAR(HKQuantity(HKUnit::poundUnit(), 160.0)
                  .doubleValueForUnit(HKUnit::gramUnitWithMetricPrefix(HKMetricPrefix::kilo)),
              72.5747792, 1e-6);
  EXPECT_DOUBLE_EQ(
      HKQuantity(HKUnit::meterUnit(), 1.78)
          .doubleValueForUnit(HKUnit::meterUnitWithMetricPrefix(HKMetricPrefix::centi)),
      178.0);
  EXPECT_DOUBLE_EQ(unit("kJ").convert(4.184, HKUnit::kilocalorieUnit()), 1.0);
  EXPECT_DOUBLE_EQ(HKUnit::largeCalorieUnit().convert(12.9, HKUnit::kilocalorieUnit()), 12.9);
  EXPECT_DOUBLE_EQ(
      unit("s").convert(0.045, HKUnit::secondUnitWithMetricPrefix(HKMetricPrefix::milli)), 45.0);
  EXPECT_NEAR(HKUnit::degreeFahrenheitUnit().convert(98.6, HKUnit::degreeCelsiusUnit()), 37.0,
              1e-9);
  EXPECT_DOUBLE_EQ(unit("%").convert(97.0, HKUnit::countUnit()), 0.97);
}

TEST(HKUnitTest, ReadsCompoundUnitsAsThePlatformWritesThem) {
  const HKUnit perMinute = HKUnit::countUnit().unitDividedByUnit(HKUnit::minuteUnit());
  EXPECT_EQ(perMinute, unit("count/min"));
  EXPECT_DOUBLE_EQ(unit("count/s").convert(1.0, perMinute), 60.0);
  // The platform's VO2 max unit, in both spellings.
  EXPECT_DOUBLE_EQ(unit("mL/min\xC2\xB7kg").convert(35.0, unit("mL/(kg*min)")), 35.0);
  EXPECT_DOUBLE_EQ(unit("L/min*kg").convert(1.0, unit("mL/kg*min")), 1000.0);
  EXPECT_DOUBLE_EQ(unit("m^2").convert(1.0, unit("cm^2")), 10000.0);
  EXPECT_DOUBLE_EQ(unit("mg/dL").convert(100.0, unit("g/L")), 1.0);
  EXPECT_TRUE(unit("mmol<180.15588000005408>/L").isCompatible(unit("mol/L")));
  EXPECT_TRUE(unit("min").isCompatible(unit("hr")));  // "min" is a minute, not a milli-inch
}

TEST(HKUnitTest, RejectsTextsThatNameNoUnitAndTellsDimensionsApart) {
  for (const char* text : {"", "kilograms", "count/", "(kg", "degC/min", "kcount", "m^", "k"}) {
    EXPECT_FALSE(HKUnit::unitFromString(text)) << text;
  }
  // Parentheses nest a few levels deep, not as deep as a hostile text goes (a million levels
  // once overflowed the stack).
  EXPECT_DOUBLE_EQ(unit("((g))/(((min)))").convert(60.0, unit("g/s")), 1.0);
  const std::size_t deep = 1'000'000;
  std::string nested(deep, '(');
  nested.append("kg").append(deep, ')');
  EXPECT_FALSE(HKUnit::unitFromString(nested));
  EXPECT_FALSE(unit("kg").isCompatible(HKUnit::countUnit()));
  EXPECT_FALSE(unit("count/min").isCompatible(HKUnit::countUnit()));
  EXPECT_TRUE(unit("kcal").isCompatible(unit("J")));
}

TEST(HKUnitDeathTest, ConvertingBetweenDimensionsStops) {
  EXPECT_DEATH(HKQuantity(HKUnit::kilocalorieUnit(), 1.0).doubleValueForUnit(HKUnit::countUnit()),
               "incompatible units.*kcal.*count");
}

}  // namespace
}  // namespace velk::platform
