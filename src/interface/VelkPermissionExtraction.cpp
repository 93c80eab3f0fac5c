#include "velk/VelkPermissionExtraction.h"

#include <set>
#include <span>
#include <utility>
#include <vector>

#include "healthstore/AppleHealthErrors.h"
#include "healthstore/AppleHealthProvider.h"
#include "healthstore/HealthDataType.h"
#include "platform/HKHealthStore.h"
#include "platform/HKObjectType.h"
#include "velk/DebugOutput.h"

namespace velk {

namespace {

using Completion = VelkPermissionExtraction::Completion;

// The read sets, in the order in which each is built.
const std::vector<HealthDataType>& physicalDataTypes() {
  // Some body-like types (temperatures, waist) belong to this family and not to the body one;
  // hosts rely on the split as it stands.
  static const std::vector<HealthDataType> types{
      HealthDataType::stepCount,
      HealthDataType::distanceWalkingRunning,
      HealthDataType::distanceCycling,
      HealthDataType::basalEnergyBurned,
      HealthDataType::activeEnergyBurned,
      HealthDataType::appleExerciseTime,
      HealthDataType::distanceSwimming,
      HealthDataType::appleStandTime,
      HealthDataType::heartRate,
      HealthDataType::restingHeartRate,
      HealthDataType::bodyTemperature,
      HealthDataType::basalBodyTemperature,
      HealthDataType::walkingHeartRateAverage,
      HealthDataType::heartRateVariabilitySDNN,
      HealthDataType::oxygenSaturation,
      HealthDataType::workout,
      HealthDataType::swimmingStrokeCount,
      HealthDataType::flightsClimbed,
      HealthDataType::waistCircumference,
      HealthDataType::vo2Max,
  };
  return types;
}

const std::vector<HealthDataType>& bodyDataTypes() {
  static const std::vector<HealthDataType> types{
      HealthDataType::bodyMass,
      HealthDataType::height,
      HealthDataType::biologicalSex,
      HealthDataType::dateOfBirth,
  };
  return types;
}

std::set<platform::HKObjectType> objectTypes(std::span<const HealthDataType> cases) {
  std::set<platform::HKObjectType> types;
  for (const auto dataType : cases) {
    if (auto type = objectType(dataType)) {
      types.insert(*type);
    }
  }
  return types;
}

void requestReadAccess(const AppleHealthProvider& provider,
                       const std::function<std::set<platform::HKObjectType>()>& readTypes,
                       Completion completion) {
  // The availability test comes first: a device without health data is not asked for its types.
  if (!platform::HKHealthStore::isHealthDataAvailable()) {
    platform::debugPrint("No health data is available.");
    completion(Result<bool>::failure(makeError(AppleHealthErrors::healthKitNotavailable)));
    return;
  }
  provider.healthStore->requestAuthorization(
      std::nullopt, readTypes(),
      [completion = std::move(completion)](bool success, std::optional<Error> error) {
        if (error.has_value()) {
          completion(Result<bool>::failure(std::move(*error)));
          return;
        }
        completion(Result<bool>::success(success));
      });
}

Completion bridged(VelkPermissionExtraction::HostCompletion completion) {
  return [completion = std::move(completion)](Result<bool> result) {
    if (result.isFailure()) {
      completion(false, result.error());
      return;
    }
    completion(result.value(), std::nullopt);
  };
}

}  // namespace

VelkPermissionExtraction::VelkPermissionExtraction()
    : appleHealthProvider(std::make_unique<AppleHealthProvider>()) {}

VelkPermissionExtraction::~VelkPermissionExtraction() = default;

void VelkPermissionExtraction::requestAllPermissions(Completion completion) {
  requestReadAccess(
      *appleHealthProvider, [] { return objectTypes(allHealthDataTypes()); },
      std::move(completion));
}

void VelkPermissionExtraction::requestSleepPermissions(Completion completion) {
  requestReadAccess(
      *appleHealthProvider,
      [] {
        std::set<platform::HKObjectType> types;
        if (auto sleep = platform::HKObjectType::categoryTypeForIdentifier(
                "HKCategoryTypeIdentifierSleepAnalysis")) {
          types.insert(*sleep);
        }
        return types;
      },
      std::move(completion));
}

void VelkPermissionExtraction::requestPhysicalPermissions(Completion completion) {
  requestReadAccess(
      *appleHealthProvider, [] { return objectTypes(physicalDataTypes()); }, std::move(completion));
}

void VelkPermissionExtraction::requesBodyPermissions(Completion completion) {
  requestReadAccess(
      *appleHealthProvider, [] { return objectTypes(bodyDataTypes()); }, std::move(completion));
}

void VelkPermissionExtraction::requestAllPermissionsObjc(HostCompletion completion) {
  requestAllPermissions(bridged(std::move(completion)));
}

void VelkPermissionExtraction::requestSleepPermissionsObjc(HostCompletion completion) {
  requestSleepPermissions(bridged(std::move(completion)));
}

void VelkPermissionExtraction::requestPhysicalPermissionsObjc(HostCompletion completion) {
  requestPhysicalPermissions(bridged(std::move(completion)));
}

void VelkPermissionExtraction::requesBodyPermissionsObjc(HostCompletion completion) {
  requesBodyPermissions(bridged(std::move(completion)));
}

}  // namespace velk
