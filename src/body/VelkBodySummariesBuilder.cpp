#include "body/VelkBodySummariesBuilder.h"

#include <optional>
#include <string>
#include <vector>

#include "healthstore/TruncatedInteger.h"

namespace velk {

namespace {

template <class Sample>
std::optional<std::int64_t> newestValue(const std::optional<std::vector<Sample>>& samples) {
  if (!samples.has_value() || samples->empty()) {
    return std::nullopt;
  }
  return truncatedInt64(samples->front().value);
}

}  // namespace

VelkBodySummaries VelkBodySummariesBuilder::build() const {
  VelkBodyMetadata metadata{
      .datetime = dateFetched,
      .userID = std::nullopt,
      .sourcesOfData = {"Apple Health"},
      .userDemographics = {makeUserDemographic()},
      .bodyHealthScore = std::nullopt,
  };
  // Every section that the library does not measure is present with nothing in it, down to the
  // records that the schema requires; the optional lists and records stay absent.
  BloodGlucose bloodGlucose{};
  return VelkBodySummaries{BodyData{std::move(metadata), makeBody(), std::move(bloodGlucose)}};
}

UserDemographic VelkBodySummariesBuilder::makeUserDemographic() const {
  UserDemographic demographic{};
  demographic.gender = appleBodyData.biologicalSex;
  demographic.dateOfBirth =
      dateProvider.formatDate(appleBodyData.birthDate, dateProvider.dateFormatterDate);
  demographic.age = dateProvider.getAge(appleBodyData.birthDate);
  return demographic;
}

Body VelkBodySummariesBuilder::makeBody() const {
  Body body{};
  body.weightKgNumber = newestValue(appleBodyData.weightSamples);
  body.heightCMNumber = newestValue(appleBodyData.heightSamples);
  return body;
}

}  // namespace velk
