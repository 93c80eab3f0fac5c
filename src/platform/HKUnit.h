// Units of measure, as the health store writes and reads them ("count/min", "kcal", "kg", "degC").
//
// A unit is a pooled definition (its text, its dimension and its scale against the SI base of that
// dimension), so an HKUnit is one pointer: cheap to copy, to store in every sample and to compare.
// Units of one dimension convert into each other; converting between dimensions is a programming
// error, and like the platform the process stops with a message saying which units were mixed.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velk::platform {

/// The platform's metric prefixes, with the platform's numbering.
enum class HKMetricPrefix : int {
  none = 0,
  pico = 1,
  nano = 2,
  micro = 3,
  milli = 4,
  centi = 5,
  deci = 6,
  deca = 7,
  hecto = 8,
  kilo = 9,
  mega = 10,
  giga = 11,
  tera = 12,
  femto = 13,
};

class HKUnit {
 public:
  /// Reads a unit text: base units with an optional metric prefix ("mg", "kcal", "ms"), products
  /// ("*" or "·"), one quotient ("mL/min·kg" is mL per minute-kilogram), parentheses and integer
  /// powers ("m^2"). Absent for a text that names no unit.
  static std::optional<HKUnit> unitFromString(std::string_view text);

  static HKUnit countUnit();
  static HKUnit secondUnitWithMetricPrefix(HKMetricPrefix prefix);
  static HKUnit minuteUnit();
  static HKUnit gramUnitWithMetricPrefix(HKMetricPrefix prefix);
  static HKUnit poundUnit();
  static HKUnit meterUnit() { return meterUnitWithMetricPrefix(HKMetricPrefix::none); }
  static HKUnit meterUnitWithMetricPrefix(HKMetricPrefix prefix);
  static HKUnit inchUnit();
  static HKUnit kilocalorieUnit();
  static HKUnit largeCalorieUnit();  ///< "Cal", the dietary calorie (one kilocalorie)
  static HKUnit degreeCelsiusUnit();
  static HKUnit degreeFahrenheitUnit();

  HKUnit unitDividedByUnit(HKUnit other) const;

  /// The unit's text as the platform prints it.
  const std::string& unitString() const;

  /// True when values in this unit can be expressed in `other` (same dimension).
  bool isCompatible(HKUnit other) const;

  /// `value`, given in this unit, expressed in `target`. Stops the process when the units are not
  /// compatible.
  double convert(double value, HKUnit target) const;

  friend bool operator==(HKUnit a, HKUnit b) { return a.definition_ == b.definition_; }

  struct Definition;

 private:
  explicit HKUnit(const Definition* definition) : definition_(definition) {}
  const Definition* definition_;
};

}  // namespace velk::platform
