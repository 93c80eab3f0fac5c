#include "platform/HKObjectType.h"

#include "platform/HealthDatabase.h"

namespace velk::platform {
namespace {

constexpr std::string_view kQuantityPrefix = "HKQuantityTypeIdentifier";
constexpr std::string_view kCategoryPrefix = "HKCategoryTypeIdentifier";
constexpr std::string_view kCharacteristicPrefix = "HKCharacteristicTypeIdentifier";

std::optional<HKObjectType> typeFor(std::string_view identifier, HKObjectKind kind) {
  if (HKObjectType::kindOfIdentifier(identifier) != kind) {
    return std::nullopt;
  }
  const std::string text(identifier);
  if (!HealthDatabase::ofCurrentDevice()->knowsType(text)) {
    return std::nullopt;
  }
  return HKObjectType(InternedString(text), kind);
}

}  // namespace

std::optional<HKObjectType> HKObjectType::quantityTypeForIdentifier(std::string_view identifier) {
  return typeFor(identifier, HKObjectKind::quantity);
}

std::optional<HKObjectType> HKObjectType::categoryTypeForIdentifier(std::string_view identifier) {
  return typeFor(identifier, HKObjectKind::category);
}

std::optional<HKObjectType> HKObjectType::characteristicTypeForIdentifier(
    std::string_view identifier) {
  return typeFor(identifier, HKObjectKind::characteristic);
}

std::optional<HKObjectType> HKObjectType::workoutType() {
  return typeFor(HKWorkoutTypeIdentifier, HKObjectKind::workout);
}

std::optional<HKObjectKind> HKObjectType::kindOfIdentifier(std::string_view identifier) {
  const auto startsWith = [identifier](std::string_view prefix) {
    return identifier.size() > prefix.size() && identifier.substr(0, prefix.size()) == prefix;
  };
  if (startsWith(kQuantityPrefix)) {
    return HKObjectKind::quantity;
  }
  if (startsWith(kCategoryPrefix)) {
    return HKObjectKind::category;
  }
  if (startsWith(kCharacteristicPrefix)) {
    return HKObjectKind::characteristic;
  }
  if (identifier == HKWorkoutTypeIdentifier) {
    return HKObjectKind::workout;
  }
  return std::nullopt;
}

const std::vector<std::string_view>& HKObjectType::platformIdentifiers() {
  static const std::vector<std::string_view> identifiers = {
      "HKQuantityTypeIdentifierAppleExerciseTime",
      "HKQuantityTypeIdentifierAppleStandTime",
      "HKQuantityTypeIdentifierBasalEnergyBurned",
      "HKQuantityTypeIdentifierActiveEnergyBurned",
      "HKQuantityTypeIdentifierStepCount",
      "HKQuantityTypeIdentifierDistanceCycling",
      "HKQuantityTypeIdentifierDistanceWalkingRunning",
      "HKQuantityTypeIdentifierDistanceSwimming",
      "HKQuantityTypeIdentifierSwimmingStrokeCount",
      "HKQuantityTypeIdentifierFlightsClimbed",
      "HKQuantityTypeIdentifierHeight",
      "HKQuantityTypeIdentifierBodyMass",
      "HKQuantityTypeIdentifierWaistCircumference",
      "HKQuantityTypeIdentifierBodyFatPercentage",
      "HKQuantityTypeIdentifierBodyTemperature",
      "HKQuantityTypeIdentifierBasalBodyTemperature",
      "HKQuantityTypeIdentifierHeartRate",
      "HKQuantityTypeIdentifierRestingHeartRate",
      "HKQuantityTypeIdentifierWalkingHeartRateAverage",
      "HKQuantityTypeIdentifierHeartRateVariabilitySDNN",
      "HKQuantityTypeIdentifierVO2Max",
      "HKQuantityTypeIdentifierOxygenSaturation",
      "HKQuantityTypeIdentifierBodyMassIndex",
      "HKQuantityTypeIdentifierLeanBodyMass",
      "HKQuantityTypeIdentifierRespiratoryRate",
      "HKQuantityTypeIdentifierDietaryEnergyConsumed",
      "HKCategoryTypeIdentifierSleepAnalysis",
      "HKCategoryTypeIdentifierMindfulSession",
      "HKCategoryTypeIdentifierAppleStandHour",
      "HKCharacteristicTypeIdentifierBiologicalSex",
      "HKCharacteristicTypeIdentifierDateOfBirth",
      "HKCharacteristicTypeIdentifierBloodType",
      "HKCharacteristicTypeIdentifierFitzpatrickSkinType",
      HKWorkoutTypeIdentifier,
  };
  return identifiers;
}

}  // namespace velk::platform
