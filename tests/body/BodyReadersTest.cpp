#include <future>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "body/BodyTestSupport.h"
#include "velk/body/VelkBiologicalSexProvider.h"
#include "velk/body/VelkHeightProvider.h"
#include "velk/body/VelkWeightProvider.h"

namespace velk::testing {
namespace {

using platform::Characteristics;

// Runs one read and waits for its answer on the store's queue.
template <class Reader, class Sample>
Result<std::vector<Sample>> read(void (Reader::*get)(Date, typename Reader::Completion) const,
                                 Date date) {
  auto reader = std::make_shared<Reader>();
  std::promise<Result<std::vector<Sample>>> answer;
  ((*reader).*get)(date, [&answer](auto result) { answer.set_value(std::move(result)); });
  return answer.get_future().get();
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
