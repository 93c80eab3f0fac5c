#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

#include "healthstore/AppleHealthErrors.h"
#include "healthstore/HealthDataType.h"
#include "platform/InMemoryHealthDatabase.h"
#include "support/StoreFixture.h"
#include "support/TestDevice.h"
#include "velk/DebugOutput.h"
#include "velk/VelkPermissionExtraction.h"

namespace velk::testing {
namespace {

using Request = void (VelkPermissionExtraction::*)(VelkPermissionExtraction::Completion);

std::shared_ptr<platform::InMemoryHealthDatabase> store(
    platform::HealthDatabaseSettings settings = {}) {
  return std::make_shared<platform::InMemoryHealthDatabase>(
      std::move(settings), platform::Characteristics{}, std::vector<platform::SampleRecord>{});
}

struct Answer {
  Result<bool> result;
  bool onCallersThread;
};

Answer ask(Request request) {
  VelkPermissionExtraction permissions;
  const auto caller = std::this_thread::get_id();
  return firstAnswer<Answer>([&](auto done) {
    (permissions.*request)([done, caller](Result<bool> result) {
      done(Answer{std::move(result), std::this_thread::get_id() == caller});
    });
  });
}

TEST(PermissionTest, EachFamilyAsksToReadItsOwnTypesLeavingUnknownOnesOutSilently) {
  auto database = store();
  TestDevice device({.healthDatabase = database});
  for (Request request : {&VelkPermissionExtraction::requestAllPermissions,
                          &VelkPermissionExtraction::requestSleepPermissions,
                          &VelkPermissionExtraction::requestPhysicalPermissions,
                          &VelkPermissionExtraction::requesBodyPermissions}) {
    const auto answer = ask(request);
    ASSERT_TRUE(answer.result.isSuccess());
    EXPECT_TRUE(answer.result.value());
    EXPECT_FALSE(answer.onCallersThread);
  }
  const auto asked = database->authorizationRequests();
  ASSERT_EQ(asked.size(), 4u);
  std::set<std::string> all;
  for (const auto type : allHealthDataTypes()) {
    all.insert(std::string(storeIdentifier(type)));
  }
  EXPECT_EQ(asked[0], all);
  EXPECT_EQ(asked[1], std::set<std::string>{"HKCategoryTypeIdentifierSleepAnalysis"});
  // The physical family is every type but sleep, the body family (the tool's tests show its four)
  // and body fat; temperatures and the waist belong to it.
  auto physical = all;
  for (const char* other :
       {"HKCategoryTypeIdentifierSleepAnalysis", "HKQuantityTypeIdentifierBodyMass",
        "HKQuantityTypeIdentifierHeight", "HKQuantityTypeIdentifierBodyFatPercentage",
        "HKCharacteristicTypeIdentifierBiologicalSex", "HKCharacteristicTypeIdentifierDateOfBirth"})
    physical.erase(other);
  EXPECT_EQ(asked[2], physical);

  platform::HealthDatabaseSettings settings;
  settings.unknownTypes = {"HKQuantityTypeIdentifierAppleStandTime",
                           "HKCategoryTypeIdentifierSleepAnalysis"};
  auto partial = store(settings);
  TestDevice older({.healthDatabase = partial});
  platform::DebugOutputCapture debug;
  EXPECT_TRUE(ask(&VelkPermissionExtraction::requestPhysicalPermissions).result.isSuccess());
  EXPECT_TRUE(ask(&VelkPermissionExtraction::requestSleepPermissions).result.isSuccess());
  physical.erase("HKQuantityTypeIdentifierAppleStandTime");
  EXPECT_EQ(partial->authorizationRequests(),
            (std::vector<std::set<std::string>>{physical, std::set<std::string>{}}));
  EXPECT_EQ(debug.text(), "");
}

TEST(PermissionTest, DeviceWithoutHealthDataFailsAtOnceAndSaysSo) {
  platform::HealthDatabaseSettings settings;
  settings.healthDataAvailable = false;
  auto database = store(settings);
  TestDevice device({.healthDatabase = database});
  platform::DebugOutputCapture debug;

  VelkPermissionExtraction permissions;
  std::optional<Result<bool>> typed;
  permissions.requesBodyPermissions([&typed](Result<bool> result) { typed = std::move(result); });
  ASSERT_TRUE(typed.has_value()) << "must complete before returning";
  ASSERT_TRUE(typed->isFailure());
  EXPECT_TRUE(errorIs(typed->error(), AppleHealthErrors::healthKitNotavailable));
  EXPECT_EQ(debug.text(), "\"No health data is available.\"\n");
  EXPECT_TRUE(database->authorizationRequests().empty());
}

TEST(PermissionTest, TheStoresAnswerIsPassedOnInBothForms) {
  const Error sheetFailed(platform::kHealthKitErrorDomain, 4, "Authorization request failed");
  platform::HealthDatabaseSettings settings;
  settings.authorization = {false, sheetFailed};
  TestDevice device({.healthDatabase = store(settings)});

  const auto typed = ask(&VelkPermissionExtraction::requestPhysicalPermissions);
  ASSERT_TRUE(typed.result.isFailure());
  EXPECT_TRUE(typed.result.error().isSameInstance(sheetFailed));

  VelkPermissionExtraction permissions;
  const auto [success, error] = firstAnswer<std::pair<bool, std::optional<Error>>>([&](auto done) {
    permissions.requesBodyPermissionsObjc([done](bool ok, std::optional<Error> failure) {
      done({ok, std::move(failure)});
    });
  });
  EXPECT_FALSE(success);
  ASSERT_TRUE(error.has_value());
  EXPECT_TRUE(error->isSameInstance(sheetFailed));

  // A refusal without an error is still an answer, not a failure.
  settings.authorization = {false, std::nullopt};
  TestDevice refusing({.healthDatabase = store(settings)});
  const auto refused = ask(&VelkPermissionExtraction::requestAllPermissions);
  ASSERT_TRUE(refused.result.isSuccess());
  EXPECT_FALSE(refused.result.value());
}

}  // namespace
}  // namespace velk::testing
