#include "healthstore/HealthDataType.h"

#include <cstddef>

namespace velk {
namespace {

using platform::HKObjectKind;

struct Entry {
  std::string_view name;
  std::string_view identifier;
  HKObjectKind kind;
};

// In declaration order; the position of an entry is the case's value.
constexpr std::array<Entry, 26> kTable{{
    {"appleExerciseTime", "HKQuantityTypeIdentifierAppleExerciseTime", HKObjectKind::quantity},
    {"appleStandTime", "HKQuantityTypeIdentifierAppleStandTime", HKObjectKind::quantity},
    {"basalEnergyBurned", "HKQuantityTypeIdentifierBasalEnergyBurned", HKObjectKind::quantity},
    {"activeEnergyBurned", "HKQuantityTypeIdentifierActiveEnergyBurned", HKObjectKind::quantity},
    {"stepCount", "HKQuantityTypeIdentifierStepCount", HKObjectKind::quantity},
    {"distanceCycling", "HKQuantityTypeIdentifierDistanceCycling", HKObjectKind::quantity},
    {"distanceWalkingRunning", "HKQuantityTypeIdentifierDistanceWalkingRunning",
     HKObjectKind::quantity},
    {"distanceSwimming", "HKQuantityTypeIdentifierDistanceSwimming", HKObjectKind::quantity},
    {"swimmingStrokeCount", "HKQuantityTypeIdentifierSwimmingStrokeCount", HKObjectKind::quantity},
    {"flightsClimbed", "HKQuantityTypeIdentifierFlightsClimbed", HKObjectKind::quantity},
    {"height", "HKQuantityTypeIdentifierHeight", HKObjectKind::quantity},
    {"bodyMass", "HKQuantityTypeIdentifierBodyMass", HKObjectKind::quantity},
    {"waistCircumference", "HKQuantityTypeIdentifierWaistCircumference", HKObjectKind::quantity},
    {"bodyFatPercentage", "HKQuantityTypeIdentifierBodyFatPercentage", HKObjectKind::quantity},
    {"bodyTemperature", "HKQuantityTypeIdentifierBodyTemperature", HKObjectKind::quantity},
    {"basalBodyTemperature", "HKQuantityTypeIdentifierBasalBodyTemperature",
     HKObjectKind::quantity},
    {"heartRate", "HKQuantityTypeIdentifierHeartRate", HKObjectKind::quantity},
    {"restingHeartRate", "HKQuantityTypeIdentifierRestingHeartRate", HKObjectKind::quantity},
    {"walkingHeartRateAverage", "HKQuantityTypeIdentifierWalkingHeartRateAverage",
     HKObjectKind::quantity},
    {"heartRateVariabilitySDNN", "HKQuantityTypeIdentifierHeartRateVariabilitySDNN",
     HKObjectKind::quantity},
    {"workout", platform::HKWorkoutTypeIdentifier, HKObjectKind::workout},
    {"sleepAnalysis", "HKCategoryTypeIdentifierSleepAnalysis", HKObjectKind::category},
    {"vo2Max", "HKQuantityTypeIdentifierVO2Max", HKObjectKind::quantity},
    {"oxygenSaturation", "HKQuantityTypeIdentifierOxygenSaturation", HKObjectKind::quantity},
    {"biologicalSex", "HKCharacteristicTypeIdentifierBiologicalSex", HKObjectKind::characteristic},
    {"dateOfBirth", "HKCharacteristicTypeIdentifierDateOfBirth", HKObjectKind::characteristic},
}};

const Entry& entry(HealthDataType type) {
  return kTable[static_cast<std::size_t>(type)];
}

}  // namespace

const std::array<HealthDataType, 26>& allHealthDataTypes() {
  static const std::array<HealthDataType, 26> all = [] {
    std::array<HealthDataType, 26> cases{};
    for (std::size_t i = 0; i < cases.size(); ++i) {
      cases[i] = static_cast<HealthDataType>(i);
    }
    return cases;
  }();
  return all;
}

std::string_view rawValue(HealthDataType type) {
  return entry(type).name;
}

std::optional<HealthDataType> healthDataTypeFromRawValue(std::string_view raw) {
  for (std::size_t i = 0; i < kTable.size(); ++i) {
    if (kTable[i].name == raw) {
      return static_cast<HealthDataType>(i);
    }
  }
  return std::nullopt;
}

std::string_view storeIdentifier(HealthDataType type) {
  return entry(type).identifier;
}

platform::HKObjectKind objectKind(HealthDataType type) {
  return entry(type).kind;
}

std::optional<platform::HKObjectType> objectType(HealthDataType type) {
  const Entry& e = entry(type);
  switch (e.kind) {
    case HKObjectKind::quantity:
      return platform::HKObjectType::quantityTypeForIdentifier(e.identifier);
    case HKObjectKind::category:
      return platform::HKObjectType::categoryTypeForIdentifier(e.identifier);
    case HKObjectKind::characteristic:
      return platform::HKObjectType::characteristicTypeForIdentifier(e.identifier);
    case HKObjectKind::workout:
      return platform::HKObjectType::workoutType();
  }
  return std::nullopt;
}

}  // namespace velk
