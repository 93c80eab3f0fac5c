// The body summary, its readers and the provider that joins them: units, which samples count,
// the user's age and sex, what failed reads keep, and overlapping or abandoned requests.
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "body/VelkBiologicalSexProvider.h"
#include "body/VelkBodyProvider.h"
#include "body/VelkHeightProvider.h"
#include "body/VelkWeightProvider.h"
#include "extraction/ExtractionLastDateStorage.h"
#include "healthstore/AppleHealthErrors.h"
#include "platform/HealthDatabase.h"
#include "platform/InMemoryHealthDatabase.h"
#include "platform/SampleRecord.h"
#include "support/StoreFixture.h"
#include "support/TestDevice.h"
#include "velk/DebugOutput.h"

namespace velk::testing {
namespace {

using platform::Characteristics;
using platform::DateComponents;

inline constexpr const char* kBodyMass = "HKQuantityTypeIdentifierBodyMass";
inline constexpr const char* kHeight = "HKQuantityTypeIdentifierHeight";

inline platform::SampleRecord measurement(const std::string& type, double value,
                                          const std::string& unit, Date start,
                                          std::optional<bool> wasUserEntered = std::nullopt) {
  platform::SampleRecord record;
  record.type = type;
  record.value = value;
  record.unit = unit;
  record.start = start;
  record.end = start;
  record.wasUserEntered = wasUserEntered;
  return record;
}

inline std::shared_ptr<platform::HealthDatabase> database(
    std::vector<platform::SampleRecord> records,
    platform::Characteristics characteristics = platform::Characteristics{},
    platform::HealthDatabaseSettings settings = platform::HealthDatabaseSettings{}) {
  return std::make_shared<platform::InMemoryHealthDatabase>(std::move(settings),
                                                            std::move(characteristics), records);
}

/// A health database whose contents a test replaces between requests, as a user's data changes
/// between two extractions; every call goes to the database set last.
class SwappableHealthDatabase final : public platform::HealthDatabase {
 public:
  explicit SwappableHealthDatabase(std::shared_ptr<platform::HealthDatabase> inner)
      : inner_(std::move(inner)) {}

  void swap(std::shared_ptr<platform::HealthDatabase> inner) {
    std::lock_guard<std::mutex> lock(mutex_);
    inner_ = std::move(inner);
  }

  bool isHealthDataAvailable() const override { return inner()->isHealthDataAvailable(); }
  bool knowsType(const std::string& identifier) const override {
    return inner()->knowsType(identifier);
  }
  platform::AuthorizationAnswer authorizationAnswer() const override {
    return inner()->authorizationAnswer();
  }
  std::optional<Error> queryError(const std::string& type) const override {
    return inner()->queryError(type);
  }
  bool answersWithoutSamples(const std::string& type) const override {
    return inner()->answersWithoutSamples(type);
  }
  Result<std::vector<platform::StoredSample>> samples(const std::string& type,
                                                      std::optional<Date> start,
                                                      std::optional<Date> end) const override {
    return inner()->samples(type, start, end);
  }
  platform::Characteristics characteristics() const override { return inner()->characteristics(); }

 private:
  std::shared_ptr<platform::HealthDatabase> inner() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return inner_;
  }
  mutable std::mutex mutex_;
  std::shared_ptr<platform::HealthDatabase> inner_;
};

/// Runs one body request through `provider` to its completion on the main queue, with success.
VelkBodyData bodySummary(VelkBodyProvider& provider, const TestDevice& device, Date date) {
  auto answer = answerOnMainQueue<Result<VelkBodyData>>(
      device.mainQueue(), [&](auto done) { provider.getBodySummary(date, std::move(done)); });
  EXPECT_TRUE(answer.isSuccess());
  return answer.isSuccess() ? std::move(answer).value() : VelkBodyData{};
}

Characteristics bornOn(int year, int month, int day, std::int64_t biologicalSex) {
  DateComponents components;
  components.year = year;
  components.month = month;
  components.day = day;
  Characteristics characteristics;
  characteristics.dateOfBirth = components;
  characteristics.biologicalSex = biologicalSex;
  return characteristics;
}

std::optional<Date> storedBodyDate() {
  return ExtractionLastDateStorage().readLastDate(VelkDataType::bodySummary);
}

TEST(BodyProviderTest, NothingReadableStillSucceedsWithAnEmptyDocument) {
  const Error refused(platform::kHealthKitErrorDomain, 5, "Authorization not determined");
  Characteristics characteristics;
  characteristics.dateOfBirth = refused;
  characteristics.biologicalSex = refused;
  platform::HealthDatabaseSettings settings;
  settings.unknownTypes.insert(kBodyMass);
  settings.queryErrors.emplace(kHeight, refused);
  TestDevice device({.healthDatabase = database({}, characteristics, settings)});
  auto provider = std::make_shared<VelkBodyProvider>();
  const Date requested = utcDate(2024, 1, 5, 9, 30);

  platform::DebugOutputCapture debug;
  const auto document = bodySummary(*provider, device, requested);
  const std::string line = platform::debugDescription(refused) + "\n";
  EXPECT_EQ(debug.text(),
            line + line +
                platform::debugDescription(makeError(AppleHealthErrors::sampleTypeNotAvailable)) +
                "\n" + line);

  // Every value absent; the metadata still names the source and one demographic record.
  VelkBodyData nothingKnown;
  auto& metadata = nothingKnown.summaries.bodyData.metadata;
  metadata.datetime = requested;
  metadata.sourcesOfData = {"Apple Health"};
  metadata.userDemographics = {UserDemographic{}};
  EXPECT_EQ(document.getDictionary(), nothingKnown.getDictionary());
  EXPECT_EQ(storedBodyDate(), requested);
}

TEST(BodyProviderTest, FailedReadsKeepWhatEarlierRequestsRead) {
  auto store = std::make_shared<SwappableHealthDatabase>(
      database({measurement(kBodyMass, 80.4, "kg", utcDate(2024, 2, 1)),
                measurement(kHeight, 1.789, "m", utcDate(2024, 2, 1))},
               bornOn(1980, 1, 1, 2)));
  TestDevice device({.healthDatabase = store});
  auto provider = std::make_shared<VelkBodyProvider>();
  const auto first = bodySummary(*provider, device, utcDate(2024, 3, 1));
  EXPECT_EQ(first.summaries.bodyData.body.heightCMNumber, 178);  // 178.9 cm, truncated

  // The user has since removed the height and the date of birth, and weights can't be read.
  const Error refused(platform::kHealthKitErrorDomain, 5, "Authorization not determined");
  Characteristics later;
  later.biologicalSex = refused;  // the date of birth answers: none entered
  platform::HealthDatabaseSettings settings;
  settings.queryErrors.emplace(kBodyMass, refused);
  store->swap(database({}, later, settings));
  platform::DebugOutputCapture debug;
  const auto second = bodySummary(*provider, device, utcDate(2024, 3, 2));
  EXPECT_EQ(debug.text(), platform::debugDescription(refused) + "\n" +
                              platform::debugDescription(refused) + "\n");
  const auto& body = second.summaries.bodyData.body;
  EXPECT_EQ(body.weightKgNumber, 80);            // read failed: the earlier value stays
  EXPECT_EQ(body.heightCMNumber, std::nullopt);  // read an empty list: replaced
  // The sex read failed and stays, in the gender; the date of birth read "none": cleared, and the
  // age with it.
  UserDemographic male;
  male.gender = "male";
  EXPECT_EQ(second.summaries.bodyData.metadata.userDemographics, std::vector{male});
}

TEST(BodyProviderTest, AProviderOrReaderReleasedWhileAReadIsOutNeverCompletes) {
  auto store = database({measurement(kBodyMass, 80, "kg", utcDate(2024, 2, 1))});
  TestDevice device({.healthDatabase = store});
  bool completed = false;
  {
    QueueGate hold(*store->callbackQueue());
    std::make_shared<VelkBodyProvider>()->getBodySummary(utcDate(2024, 3, 1),
                                                         [&completed](auto) { completed = true; });
    std::make_shared<VelkWeightProvider>()->getWeight(utcDate(2024, 3, 1),
                                                      [&completed](auto) { completed = true; });
  }
  drainQueue(*store->callbackQueue());
  device.mainQueue().drain();
  EXPECT_FALSE(completed);
  EXPECT_EQ(storedBodyDate(), std::nullopt);
}

TEST(BodyProviderDeathTest, AProviderWithoutAnOwnerIsAMistakeFoundAtOnce) {
  TestDevice device({.healthDatabase = database({})});
  EXPECT_DEATH(
      {
        VelkBodyProvider provider;
        provider.getBodySummary(utcDate(2024, 3, 1), [](auto) {});
      },
      "must be held by a std::shared_ptr");
}

// Runs one read and waits for its answer on the store's queue.
template <class Reader, class Sample>
Result<std::vector<Sample>> read(void (Reader::*get)(Date, typename Reader::Completion) const,
                                 Date date) {
  auto reader = std::make_shared<Reader>();
  return firstAnswer<Result<std::vector<Sample>>>([&](auto done) { ((*reader).*get)(date, done); });
}

auto weights(Date date) {
  return read<VelkWeightProvider, VelkWeightSample>(&VelkWeightProvider::getWeight, date);
}

auto heights(Date date) {
  return read<VelkHeightProvider, VelkHeightSample>(&VelkHeightProvider::getHeight, date);
}

TEST(BodyReadersTest, TenNewestUpToTheMomentHandEnteredIncluded) {
  const Date moment = utcDate(2024, 3, 20, 12);
  std::vector<platform::SampleRecord> records;
  for (int day = 1; day <= 12; ++day) {
    // Stored out of order, and every other one typed in by hand.
    const int shuffled = (day * 5) % 12 + 1;
    records.push_back(measurement(kBodyMass, 70 + shuffled, "kg", utcDate(2024, 3, shuffled, 7),
                                  shuffled % 2 == 0));
  }
  records.push_back(measurement(kBodyMass, 99, "kg", moment.addingTimeInterval(1)));
  TestDevice device({.healthDatabase = database(records)});

  const auto weight = weights(moment);
  ASSERT_TRUE(weight.isSuccess());
  std::vector<double> values;
  for (const auto& sample : weight.value()) {
    values.push_back(sample.value);
  }
  EXPECT_EQ(values, (std::vector<double>{82, 81, 80, 79, 78, 77, 76, 75, 74, 73}));
}

TEST(BodyReadersTest, StoreAnswersWithoutDataAreEmptyListsAndErrorsPassThrough) {
  const Error refused(platform::kHealthKitErrorDomain, 5, "Authorization not determined");
  platform::HealthDatabaseSettings settings;
  settings.queryErrors.emplace(kHeight, refused);
  settings.typesAnsweringWithoutSamples.insert(kBodyMass);
  TestDevice device({.healthDatabase = database({}, {}, settings)});

  const auto weight = weights(utcDate(2024, 3, 11));
  ASSERT_TRUE(weight.isSuccess());
  EXPECT_TRUE(weight.value().empty());

  const auto height = heights(utcDate(2024, 3, 11));
  ASSERT_TRUE(height.isFailure());
  EXPECT_TRUE(height.error().isSameInstance(refused));
}

TEST(BodyReadersTest, BiologicalSexWords) {
  const std::vector<std::pair<std::int64_t, std::string>> cases{
      {0, "notSet"}, {1, "female"}, {2, "male"}, {3, "other"}, {7, "notSet"}, {-1, "notSet"}};
  for (const auto& [value, word] : cases) {
    Characteristics characteristics;
    characteristics.biologicalSex = value;
    TestDevice device({.healthDatabase = database({}, characteristics)});
    const auto sex = VelkBiologicalSexProvider().getBiologicalSex();
    ASSERT_TRUE(sex.isSuccess());
    EXPECT_EQ(sex.value(), word) << "value " << value;
  }
}

}  // namespace
}  // namespace velk::testing
