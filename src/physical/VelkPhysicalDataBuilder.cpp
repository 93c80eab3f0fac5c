#include "physical/VelkPhysicalDataBuilder.h"

#include <string>

#include "healthstore/TruncatedInteger.h"

namespace velk {

VelkPhysicalSummaries VelkPhysicalDataBuilder::buildPhysicalSummaries(Date date) const {
  std::unique_lock lock(mutex_);
  const auto calories = caloriesData_;
  const auto steps = totalSteps_;
  // The HRV average is truncated here, and only here: the builder keeps it unrounded.
  std::optional<std::int64_t> hrvAverage;
  if (hrvData_) {
    hrvAverage = truncatedInt64(hrvData_->avgValue);
  }
  const auto heartRate = heartRateData_;
  const auto resting =
      restingHrData_ ? std::optional<std::int64_t>(restingHrData_->avgValue) : std::nullopt;
  lock.unlock();

  DailyActivityRelatedData daily;
  daily.metadata.datetime = date;
  daily.metadata.sourcesOfData = {std::string("Apple Health")};
  daily.metadata.userDemographics = {UserDemographic{}};

  daily.distanceData.stepsPerDayNumber = steps;

  // The calorie total is known but not written: "calories_expenditure_kilocalories" stays null.
  if (calories) {
    daily.caloriesData.caloriesNetActiveKilocalories = calories->activeCalories;
    daily.caloriesData.caloriesBasalMetabolicRateKilocalories = calories->basalCalories;
  }

  if (heartRate) {
    daily.heartRateData.hrMaxBPM = heartRate->maxHeartRate;
    daily.heartRateData.hrMinimumBPM = heartRate->minHeartRate;
    daily.heartRateData.hrAvgBPM = heartRate->avgHeartRate;
  }
  daily.heartRateData.hrRestingBPM = resting;
  daily.heartRateData.hrvAvgSdnnNumber = hrvAverage;

  return VelkPhysicalSummaries{std::move(daily)};
}

}  // namespace velk
