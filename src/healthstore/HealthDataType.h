// The 26 health data types the library knows, in their published order (permission sets are
// built in this order). A case's raw value is its name; each stands for one health-store type.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/HKObjectType.h"

namespace velk {

enum class HealthDataType : std::uint8_t {
  appleExerciseTime,
  appleStandTime,
  basalEnergyBurned,
  activeEnergyBurned,
  stepCount,
  distanceCycling,
  distanceWalkingRunning,
  distanceSwimming,
  swimmingStrokeCount,
  flightsClimbed,
  height,
  bodyMass,
  waistCircumference,
  bodyFatPercentage,
  bodyTemperature,
  basalBodyTemperature,
  heartRate,
  restingHeartRate,
  walkingHeartRateAverage,
  heartRateVariabilitySDNN,
  workout,
  sleepAnalysis,
  vo2Max,
  oxygenSaturation,
  biologicalSex,
  dateOfBirth,
};

/// Every case, in declaration order.
const std::array<HealthDataType, 26>& allHealthDataTypes();

/// The case's name ("vo2Max").
std::string_view rawValue(HealthDataType type);

/// The case with that exact name; absent for any other text ("VO2Max" is none).
std::optional<HealthDataType> healthDataTypeFromRawValue(std::string_view raw);

/// The health-store identifier the case stands for ("HKQuantityTypeIdentifierVO2Max"; the workout
/// type's identifier for `workout`).
std::string_view storeIdentifier(HealthDataType type);

platform::HKObjectKind objectKind(HealthDataType type);

/// The store's object type for the case, absent when the store does not know the identifier.
std::optional<platform::HKObjectType> objectType(HealthDataType type);

}  // namespace velk
