#include "body/VelkBodyDataBuilder.h"

#include <utility>

#include "body/VelkBodySummariesBuilder.h"
#include "extraction/VelkDateFormatter.h"

namespace velk {

std::optional<Date> VelkBodyDataBuilder::birthDate() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return data_.birthDate;
}

void VelkBodyDataBuilder::setBirthDate(std::optional<Date> birthDate) {
  std::lock_guard<std::mutex> lock(mutex_);
  data_.birthDate = birthDate;
}

std::optional<std::string> VelkBodyDataBuilder::biologicalSex() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return data_.biologicalSex;
}

void VelkBodyDataBuilder::setBiologicalSex(std::optional<std::string> biologicalSex) {
  std::lock_guard<std::mutex> lock(mutex_);
  data_.biologicalSex = std::move(biologicalSex);
}

std::optional<std::vector<VelkWeightSample>> VelkBodyDataBuilder::weightSamples() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return data_.weightSamples;
}

void VelkBodyDataBuilder::setWeightSamples(
    std::optional<std::vector<VelkWeightSample>> weightSamples) {
  std::lock_guard<std::mutex> lock(mutex_);
  data_.weightSamples = std::move(weightSamples);
}

std::optional<std::vector<VelkHeightSample>> VelkBodyDataBuilder::heightSamples() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return data_.heightSamples;
}

void VelkBodyDataBuilder::setHeightSamples(
    std::optional<std::vector<VelkHeightSample>> heightSamples) {
  std::lock_guard<std::mutex> lock(mutex_);
  data_.heightSamples = std::move(heightSamples);
}

VelkAppleBodyData VelkBodyDataBuilder::appleBodyData() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return data_;
}

VelkBodyData VelkBodyDataBuilder::build(Date date) const {
  const VelkBodySummariesBuilder summaries{appleBodyData(), VelkDateFormatter(), date};
  VelkBodyData document;
  document.summaries = summaries.build();
  return document;
}

}  // namespace velk
