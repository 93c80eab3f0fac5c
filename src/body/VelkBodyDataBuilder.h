// Collects the body values that the readers return, for the whole life of its body provider, and
// builds the body document from them. It is never cleared: a value stays until a later successful
// read replaces it, so a request whose read fails reports what an earlier request read.
//
// The readers write from the caller's thread and from the store's queue; two overlapping requests
// on one provider write the same fields. Each field therefore sits behind the builder's lock, and a
// document is built from one consistent copy of all four.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "body/VelkAppleBodyData.h"
#include "body/VelkBodySamples.h"
#include "velk/BodyDocument.h"
#include "velk/Date.h"

namespace velk {

class VelkBodyDataBuilder {
 public:
  VelkBodyDataBuilder() = default;
  VelkBodyDataBuilder(const VelkBodyDataBuilder&) = delete;
  VelkBodyDataBuilder& operator=(const VelkBodyDataBuilder&) = delete;

  std::optional<Date> birthDate() const;
  void setBirthDate(std::optional<Date> birthDate);

  std::optional<std::string> biologicalSex() const;
  void setBiologicalSex(std::optional<std::string> biologicalSex);

  std::optional<std::vector<VelkWeightSample>> weightSamples() const;
  void setWeightSamples(std::optional<std::vector<VelkWeightSample>> weightSamples);

  std::optional<std::vector<VelkHeightSample>> heightSamples() const;
  void setHeightSamples(std::optional<std::vector<VelkHeightSample>> heightSamples);

  /// A copy of the four fields, taken at once.
  VelkAppleBodyData appleBodyData() const;

  /// The body document ("body_health", version 1) of what the builder holds, for the requested
  /// `date`. Ages are counted to the device's current moment.
  VelkBodyData build(Date date) const;

 private:
  mutable std::mutex mutex_;
  VelkAppleBodyData data_;
};

}  // namespace velk
