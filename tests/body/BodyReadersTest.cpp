#include <future>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "body/BodyTestSupport.h"
#include "velk/body/VelkBiologicalSexProvider.h"
#include "velk/body/VelkBirthProvider.h"
#include "velk/body/VelkHeightProvider.h"
#include "velk/body/VelkWeightProvider.h"
#include "velk/healthstore/AppleHealthErrors.h"

namespace velk::testing {
namespace {

using platform::Characteristics;
using platform::DateComponents;

template <class Reader, class Sample>
Result<std::vector<Sample>> readNow(const Reader& reader, Date date,
                                    void (Reader::*read)(Date, typename Reader::Completion) const) {
  std::promise<Result<std::vector<Sample>>> answer;
  (reader.*read)(
      date, [&answer](Result<std::vector<Sample>> result) { answer.set_value(std::move(result)); });
  return answer.get_future().get();
}

Result<std::vector<VelkWeightSample>> weights(Date date) {
  auto reader = std::make_shared<VelkWeightProvider>();
  return readNow<VelkWeightProvider, VelkWeightSample>(*reader, date,
                                                       &VelkWeightProvider::getWeight);
}

Result<std::vector<VelkHeightSample>> heights(Date date) {
  auto reader = std::make_shared<VelkHeightProvider>();
  return readNow<VelkHeightProvider, VelkHeightSample>(*reader, date,
                                                       &VelkHeightProvider::getHeight);
}

TEST(BodyReadersTest, MeasurementsComeInKilogramsAndCentimetresUnrounded) {
  const Date morning = utcDate(2024, 3, 10, 8);
  TestDevice device({.healthDatabase = database({
                         measurement(kBodyMass, 160, "lb", morning),
                         measurement(kHeight, 1.78, "m", morning),
                         measurement(kHeight, 5.5, "ft", morning.addingTimeInterval(-86400)),
                     })});
  const auto weight = weights(utcDate(2024, 3, 11));
  ASSERT_TRUE(weight.isSuccess());
  ASSERT_EQ(weight.value().size(), 1u);
  EXPECT_DOUBLE_EQ(weight.value()[0].value, 160 * 0.45359237);
  EXPECT_EQ(weight.value()[0].startDate, morning);

  const auto height = heights(utcDate(2024, 3, 11));
  ASSERT_TRUE(height.isSuccess());
  ASSERT_EQ(height.value().size(), 2u);
  EXPECT_DOUBLE_EQ(height.value()[0].value, 178.0);
  EXPECT_DOUBLE_EQ(height.value()[1].value, 5.5 * 30.48);
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

TEST(BodyReadersTest, UnknownTypeFailsAtOnceWithoutAQuery) {
  platform::HealthDatabaseSettings settings;
  settings.unknownTypes.insert(kBodyMass);
  TestDevice device({.healthDatabase = database({}, {}, settings)});
  auto reader = std::make_shared<VelkWeightProvider>();
  std::optional<Result<std::vector<VelkWeightSample>>> answer;
  reader->getWeight(utcDate(2024, 3, 11),
                    [&answer](Result<std::vector<VelkWeightSample>> r) { answer = std::move(r); });
  ASSERT_TRUE(answer.has_value()) << "must complete on the caller's thread";
  ASSERT_TRUE(answer->isFailure());
  EXPECT_TRUE(errorIs(answer->error(), AppleHealthErrors::sampleTypeNotAvailable));
}

TEST(BodyReadersTest, ReaderReleasedBeforeTheAnswerCallsNothing) {
  auto store = database({measurement(kBodyMass, 80, "kg", utcDate(2024, 3, 1))});
  TestDevice device({.healthDatabase = store});
  bool called = false;
  {
    HeldCallbackQueue hold(*store);
    auto reader = std::make_shared<VelkWeightProvider>();
    reader->getWeight(utcDate(2024, 3, 11), [&called](auto) { called = true; });
    reader.reset();
  }
  flush(*store);
  EXPECT_FALSE(called);
}

TEST(BodyReadersTest, DateOfBirthIsTheLocalDayOrAbsent) {
  DateComponents day;
  day.year = 1990;
  day.month = 6;
  day.day = 15;
  Characteristics born;
  born.dateOfBirth = day;
  {
    TestDevice device({.timeZone = "Asia/Tokyo", .healthDatabase = database({}, born)});
    const auto birth = VelkBirthProvider().getBirthDate();
    ASSERT_TRUE(birth.isSuccess());
    EXPECT_EQ(birth.value(), device.localDate(1990, 6, 15));
  }
  {
    TestDevice device({.healthDatabase = database({}, Characteristics{})});
    const auto birth = VelkBirthProvider().getBirthDate();
    ASSERT_TRUE(birth.isSuccess());
    EXPECT_FALSE(birth.value().has_value());
  }
  Characteristics refused;
  const Error error(platform::kHealthKitErrorDomain, 5, "Authorization not determined");
  refused.dateOfBirth = error;
  refused.biologicalSex = error;
  TestDevice device({.healthDatabase = database({}, refused)});
  const auto birth = VelkBirthProvider().getBirthDate();
  ASSERT_TRUE(birth.isFailure());
  EXPECT_TRUE(birth.error().isSameInstance(error));
  const auto sex = VelkBiologicalSexProvider().getBiologicalSex();
  ASSERT_TRUE(sex.isFailure());
  EXPECT_TRUE(sex.error().isSameInstance(error));
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
