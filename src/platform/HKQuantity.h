// An amount in a unit, as a statistics interval reports its sum and a quantity sample its value.
#pragma once

#include "platform/HKUnit.h"

namespace velk::platform {

class HKQuantity {
 public:
  HKQuantity(HKUnit unit, double value) : unit_(unit), value_(value) {}

  /// The amount in `unit`; stops the process when `unit` is not compatible with the quantity's.
  double doubleValueForUnit(HKUnit unit) const { return unit_.convert(value_, unit); }

  /// The unit and value the quantity was made with.
  HKUnit unit() const { return unit_; }
  double value() const { return value_; }

 private:
  HKUnit unit_;
  double value_;
};

}  // namespace velk::platform
