#include "platform/CanonicalUnits.h"

#include <unordered_map>

namespace velk::platform {

std::optional<HKUnit> canonicalUnitForQuantityType(std::string_view identifier) {
  static const std::unordered_map<std::string_view, std::string_view> table = {
      {"HKQuantityTypeIdentifierStepCount", "count"},
      {"HKQuantityTypeIdentifierFlightsClimbed", "count"},
      {"HKQuantityTypeIdentifierSwimmingStrokeCount", "count"},
      {"HKQuantityTypeIdentifierActiveEnergyBurned", "kcal"},
      {"HKQuantityTypeIdentifierBasalEnergyBurned", "kcal"},
      {"HKQuantityTypeIdentifierDietaryEnergyConsumed", "kcal"},
      {"HKQuantityTypeIdentifierDistanceWalkingRunning", "m"},
      {"HKQuantityTypeIdentifierDistanceCycling", "m"},
      {"HKQuantityTypeIdentifierDistanceSwimming", "m"},
      {"HKQuantityTypeIdentifierAppleExerciseTime", "min"},
      {"HKQuantityTypeIdentifierAppleStandTime", "min"},
      {"HKQuantityTypeIdentifierHeartRate", "count/min"},
      {"HKQuantityTypeIdentifierRestingHeartRate", "count/min"},
      {"HKQuantityTypeIdentifierWalkingHeartRateAverage", "count/min"},
      {"HKQuantityTypeIdentifierRespiratoryRate", "count/min"},
      {"HKQuantityTypeIdentifierHeartRateVariabilitySDNN", "ms"},
      {"HKQuantityTypeIdentifierBodyMass", "kg"},
      {"HKQuantityTypeIdentifierLeanBodyMass", "kg"},
      {"HKQuantityTypeIdentifierHeight", "m"},
      {"HKQuantityTypeIdentifierWaistCircumference", "m"},
      {"HKQuantityTypeIdentifierBodyFatPercentage", "%"},
      {"HKQuantityTypeIdentifierOxygenSaturation", "%"},
      {"HKQuantityTypeIdentifierBodyMassIndex", "count"},
      {"HKQuantityTypeIdentifierBodyTemperature", "degC"},
      {"HKQuantityTypeIdentifierBasalBodyTemperature", "degC"},
      {"HKQuantityTypeIdentifierVO2Max", "mL/kg*min"},
  };
  const auto found = table.find(identifier);
  if (found == table.end()) {
    return std::nullopt;
  }
  return HKUnit::unitFromString(found->second);
}

}  // namespace velk::platform
