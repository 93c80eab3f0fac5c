// Samples as a health-store query hands them back: the platform's class shapes, shared and
// immutable. A query answers with std::shared_ptr<const HKSample>; callers tell quantity from
// category samples with std::dynamic_pointer_cast, as they would test the platform's classes.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/HKObjectType.h"
#include "platform/HKQuantity.h"
#include "platform/InternedString.h"
#include "velk/Date.h"

namespace velk::platform {

/// The metadata key under which a sample records that the user typed it in by hand.
inline constexpr const char* HKMetadataKeyWasUserEntered = "HKWasUserEntered";

/// The parts that every sample has.
struct HKSampleHeader {
  HKObjectType sampleType;
  Date startDate;
  Date endDate;
  InternedString sourceBundleIdentifier;
  InternedString sourceName;
  std::optional<bool> wasUserEntered;  ///< metadata HKWasUserEntered; absent: no such key
};

class HKSample {
 public:
  virtual ~HKSample() = default;

  const HKObjectType& sampleType() const { return header_.sampleType; }
  Date startDate() const { return header_.startDate; }
  Date endDate() const { return header_.endDate; }
  /// The bundle identifier of the app or device that wrote the sample (its source revision's
  /// source).
  const std::string& sourceBundleIdentifier() const { return header_.sourceBundleIdentifier.str(); }
  const std::string& sourceName() const { return header_.sourceName.str(); }
  /// The HKWasUserEntered metadata value, absent when the sample's metadata has no such key.
  std::optional<bool> metadataWasUserEntered() const { return header_.wasUserEntered; }

 protected:
  explicit HKSample(HKSampleHeader header) : header_(std::move(header)) {}
  HKSample(const HKSample&) = default;
  HKSample& operator=(const HKSample&) = default;

 private:
  HKSampleHeader header_;
};

class HKQuantitySample final : public HKSample {
 public:
  HKQuantitySample(HKSampleHeader header, HKQuantity quantity)
      : HKSample(std::move(header)), quantity_(quantity) {}

  const HKQuantity& quantity() const { return quantity_; }

 private:
  HKQuantity quantity_;
};

class HKCategorySample final : public HKSample {
 public:
  HKCategorySample(HKSampleHeader header, std::int64_t value)
      : HKSample(std::move(header)), value_(value) {}

  std::int64_t value() const { return value_; }

 private:
  std::int64_t value_;
};

/// What a sample query hands back: samples of any class, in the query's order.
using HKSampleList = std::vector<std::shared_ptr<const HKSample>>;

/// The list as samples of one class (HKQuantitySample, HKCategorySample) when every element is
/// one, else absent. Like the platform's cast of a sample array to an array of one class, the
/// list is taken as a whole or not at all.
template <class SampleClass>
std::optional<std::vector<std::shared_ptr<const SampleClass>>> samplesOfClass(
    const HKSampleList& list) {
  std::vector<std::shared_ptr<const SampleClass>> typed;
  typed.reserve(list.size());
  for (const auto& sample : list) {
    auto one = std::dynamic_pointer_cast<const SampleClass>(sample);
    if (!one) {
      return std::nullopt;
    }
    typed.push_back(std::move(one));
  }
  return typed;
}

}  // namespace velk::platform
