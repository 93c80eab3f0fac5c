// The interface: the manager's summaries in both forms from store files, on the main queue; many
// requests at once from many threads on one manager and on several, with managers released while
// their requests are out; and the permission requests of each family.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "healthstore/AppleHealthErrors.h"
#include "healthstore/HealthDataType.h"
#include "sleep/SleepRepository.h"
#include "sleep/SleepTestStore.h"
#include "support/StoreFixture.h"
#include "support/TestDevice.h"
#include "velk/BodyDocument.h"
#include "velk/DebugOutput.h"
#include "velk/PhysicalDocument.h"
#include "velk/SleepDocument.h"
#include "velk/VelkExtractionManager.h"
#include "velk/VelkPermissionExtraction.h"

namespace velk {
namespace {

using Json = nlohmann::json;
using testing::firstAnswer;
using testing::TestDevice;
using Answer = std::pair<std::optional<Json>, std::optional<Error>>;  // a dictionary form's call

VelkExtractionManager::DictionaryCompletion collect(const testing::Completions<Answer>& answers) {
  return [done = answers.completion()](auto dictionary, auto error) {
    done({std::move(dictionary), std::move(error)});
  };
}

Answer sleepDictionary(VelkExtractionManager& manager, Date date) {
  testing::Completions<Answer> answers;
  manager.getSleepSummayObjc(date, collect(answers));
  return answers.wait().value_or(Answer{});
}

// Runs a dictionary-form request to its completion on the main queue; it must bring no error.
template <class Start>
Json dictionaryOnMainQueue(const TestDevice& device, Start start) {
  const Answer answer = testing::answerOnMainQueue<Answer>(device.mainQueue(), [&](auto done) {
    start([done](std::optional<Json> dictionary, std::optional<Error> error) {
      done({std::move(dictionary), std::move(error)});
    });
  });
  EXPECT_FALSE(answer.second.has_value());
  return answer.first.value_or(Json());
}

// Owners that answer at once with a fixed result.
struct FixedPhysicalOwner final : PhysicalSummaryOwner {
  Result<VelkPhysicalData> answer;
  explicit FixedPhysicalOwner(Result<VelkPhysicalData> a) : answer(std::move(a)) {}
  void getPhysicalData(Date, Completion completion) override { completion(answer); }
};
struct FixedBodyOwner final : BodySummaryOwner {
  Result<VelkBodyData> answer;
  explicit FixedBodyOwner(Result<VelkBodyData> a) : answer(std::move(a)) {}
  void getBodySummary(Date, Completion completion) override { completion(answer); }
};

TEST(ManagerTest, SleepFromAStoreFileInBothFormsAndItsEmptyAnswer) {
  const Date date = testing::utcDate(2024, 3, 10, 8, 30);
  {
    testing::SleepTestStore store(Json{
        {"samples", {testing::sleepSample(4, "2024-03-10T01:00:00Z", "2024-03-10T02:30:00Z")}}});
    VelkExtractionManager manager;
    testing::Completions<Result<std::optional<VelkSleepData>>> typed;
    manager.getSleepSummay(date, typed.completion());
    const auto document = typed.wait().value().value();
    ASSERT_TRUE(document.has_value());
    EXPECT_EQ(
        document->summaries.sleepRelatedData.sleepDurationRelatedData.deepSleepDurationSeconds,
        5400);
    EXPECT_EQ(sleepDictionary(manager, date), Answer(document->getDictionary(), std::nullopt));
  }
  {
    testing::SleepTestStore store(Json::object(), {}, [](auto& contents) {
      contents.settings.typesAnsweringWithoutSamples.insert(
          "HKCategoryTypeIdentifierSleepAnalysis");
    });
    VelkExtractionManager manager;
    EXPECT_EQ(sleepDictionary(manager, date), Answer(Json::object(), std::nullopt));
  }
}

TEST(ManagerTest, DictionaryFormsPassErrorsOnAndTurnUnencodableDocumentsIntoEmptyDictionaries) {
  testing::SleepTestStore store(
      Json{{"query_errors",
            {{"HKCategoryTypeIdentifierSleepAnalysis", {{"code", 6}, {"message", "locked"}}}}}});
  VelkBodyData unencodable;
  unencodable.summaries.bodyData.metadata.datetime =
      Date::fromReferenceSeconds(std::numeric_limits<double>::quiet_NaN());
  const Error emptySamples = makeError(AppleHealthErrors::emptySamples);
  VelkExtractionManager manager(
      {SleepRepository::make(),
       std::make_shared<FixedPhysicalOwner>(Result<VelkPhysicalData>::failure(emptySamples)),
       std::make_shared<FixedBodyOwner>(Result<VelkBodyData>::success(unencodable))});
  testing::Completions<Answer> sleep, physical, body;
  manager.getSleepSummayObjc(Date(), collect(sleep));
  manager.getPhysicalSummaryObjc(Date(), collect(physical));
  manager.getBodySummaryObjc(Date(), collect(body));

  EXPECT_FALSE(sleep.wait()->first.has_value());
  EXPECT_TRUE(sleep.wait()->second->isSameInstance(
      *store.database().queryError("HKCategoryTypeIdentifierSleepAnalysis")));
  EXPECT_FALSE(physical.wait()->first.has_value());
  EXPECT_TRUE(physical.wait()->second->isSameInstance(emptySamples));
  EXPECT_EQ(body.wait(), Answer(Json::object(), std::nullopt));
}

TEST(ManagerTest, BodyAndPhysicalInBothFormsOnTheMainQueueThePhysicalCarryingEarlierValues) {
  // A weight, and steps on 2024-03-10 (Berlin) only.
  TestDevice device(
      {.timeZone = "Europe/Berlin", .healthDatabase = testing::databaseFromJson(R"({"samples": [
      {"type": "HKQuantityTypeIdentifierBodyMass", "unit": "kg", "value": 70.5, "start": "2024-03-10T07:00:00Z", "end": "2024-03-10T07:00:00Z"},
      {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T10:00:00+01:00", "end": "2024-03-10T11:00:00+01:00", "value": 8000}]})")});
  platform::DebugOutputCapture debugOutput;
  VelkExtractionManager manager;
  const auto physical = [&](Date day) {
    return testing::answerOnMainQueue<Result<VelkPhysicalData>>(
        device.mainQueue(), [&](auto done) { manager.getPhysicalSummary(day, std::move(done)); });
  };
  ASSERT_TRUE(physical(device.localDate(2024, 3, 10, 21, 15)).isSuccess());

  // The 11th has no steps: the 10th's are kept by the manager's one physical provider, whichever
  // form asks.
  const Date day = device.localDate(2024, 3, 11, 7, 0);
  const Json physicalDictionary = dictionaryOnMainQueue(
      device, [&](auto done) { manager.getPhysicalSummaryObjc(day, std::move(done)); });
  const auto typed = physical(day);
  ASSERT_TRUE(typed.isSuccess());
  EXPECT_EQ(typed.value().summaries.dailyActivityRelatedData.distanceData.stepsPerDayNumber, 8000);
  EXPECT_EQ(physicalDictionary, typed.value().getDictionary());
  EXPECT_EQ(manager.getLastExtractionDate(VelkDataType::physicalSummary), day);

  const Json bodyDictionary = dictionaryOnMainQueue(
      device, [&](auto done) { manager.getBodySummaryObjc(day, std::move(done)); });
  const auto body = testing::answerOnMainQueue<Result<VelkBodyData>>(
      device.mainQueue(), [&](auto done) { manager.getBodySummary(day, std::move(done)); });
  ASSERT_TRUE(body.isSuccess());
  EXPECT_EQ(body.value().summaries.bodyData.body.weightKgNumber, 70);
  EXPECT_EQ(body.value().summaries.bodyData.metadata.datetime, day);
  EXPECT_EQ(bodyDictionary, body.value().getDictionary());
}

constexpr int kThreads = 6;
constexpr int kRequestsPerThread = 20;  // each request is all six summary calls

const char* kStore = R"({"date_of_birth": "1990-06-15", "biological_sex": 1, "samples": [
  {"type": "HKCategoryTypeIdentifierSleepAnalysis", "start": "2024-03-09T23:10:00+01:00", "end": "2024-03-10T06:40:00+01:00", "value": 3, "source": "com.apple.health.8D2F3A"},
  {"type": "HKQuantityTypeIdentifierStepCount", "start": "2024-03-10T08:00:00Z", "end": "2024-03-10T08:10:00Z", "value": 1234, "unit": "count"},
  {"type": "HKQuantityTypeIdentifierHeartRate", "start": "2024-03-10T09:00:00Z", "end": "2024-03-10T09:00:00Z", "value": 61, "unit": "count/min"},
  {"type": "HKQuantityTypeIdentifierBodyMass", "start": "2024-03-01T07:00:00Z", "end": "2024-03-01T07:00:00Z", "value": 70.5, "unit": "kg"}]})";

// One counter per request slot: a completion called twice shows as a 2.
using CallCounts = std::vector<std::atomic<int>>;

std::size_t called(const CallCounts& counts) {
  return static_cast<std::size_t>(
      std::count_if(counts.begin(), counts.end(), [](const auto& n) { return n.load() > 0; }));
}

int most(const CallCounts& counts) {
  return std::max_element(counts.begin(), counts.end(),
                          [](const auto& a, const auto& b) { return a.load() < b.load(); })
      ->load();
}

void requestAll(VelkExtractionManager& manager, Date day, CallCounts& counts, std::size_t slot) {
  auto count = [&counts](std::size_t i) { return [&counts, i](auto&&...) { ++counts[i]; }; };
  manager.getSleepSummay(day, count(slot));
  manager.getPhysicalSummary(day, count(slot + 1));
  manager.getBodySummary(day, count(slot + 2));
  manager.getSleepSummayObjc(day, count(slot + 3));
  manager.getPhysicalSummaryObjc(day, count(slot + 4));
  manager.getBodySummaryObjc(day, count(slot + 5));
}

TEST(ManagerLoadConcurrencyTest, ManyThreadsOnOneAndOnSeveralManagersGetEachAnswerOnce) {
  testing::TestDevice device({.timeZone = "Europe/Berlin",
                              .now = testing::utcDate(2024, 3, 12, 12),
                              .healthDatabase = testing::databaseFromJson(kStore)});
  constexpr std::size_t kSlots = std::size_t{kThreads} * kRequestsPerThread * 6;
  for (const bool shared : {true, false}) {
    SCOPED_TRACE(shared ? "one manager" : "a manager per thread");
    CallCounts counts(kSlots);
    // A manager held by nobody drops its answers, so each is kept until the end.
    std::vector<std::shared_ptr<VelkExtractionManager>> managers;
    for (int t = 0; t < (shared ? 1 : kThreads); ++t) {
      managers.push_back(std::make_shared<VelkExtractionManager>());
    }
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        auto& own = *managers[shared ? 0 : static_cast<std::size_t>(t)];
        for (int r = 0; r < kRequestsPerThread; ++r) {
          const auto slot = static_cast<std::size_t>((t * kRequestsPerThread + r) * 6);
          requestAll(own, testing::utcDate(2024, 3, 9 + r % 3, 12), counts, slot);
        }
      });
    }
    const bool answered = device.mainQueue().runUntil([&] { return called(counts) == kSlots; },
                                                      std::chrono::seconds(60));
    for (auto& thread : threads) {
      thread.join();
    }
    device.mainQueue().drain();
    EXPECT_TRUE(answered) << called(counts) << " of " << kSlots << " answered";
    EXPECT_EQ(most(counts), 1) << "a completion was called twice";
  }
}

// A manager released while a sleep query waits behind the store's queue drops every answer;
// managers released at any moment while their queries run call nothing twice.
TEST(ManagerConcurrencyTest, ManagersReleasedWithQueriesOutCallNothingTwice) {
  const auto store = testing::databaseFromJson(kStore);
  testing::TestDevice device({.timeZone = "America/Sao_Paulo",
                              .now = testing::utcDate(2024, 3, 12, 12),
                              .healthDatabase = store});
  constexpr int kManagers = 40;
  CallCounts counts(kManagers * 6);
  {
    testing::QueueGate gate(*store->callbackQueue());
    auto manager = std::make_unique<VelkExtractionManager>();
    requestAll(*manager, testing::utcDate(2024, 3, 10, 12), counts, 0);
    manager.reset();
  }
  testing::drainQueue(*store->callbackQueue());
  device.mainQueue().drain();
  EXPECT_EQ(called(counts), 0u);

  for (int m = 1; m < kManagers; ++m) {
    auto manager = std::make_unique<VelkExtractionManager>();
    requestAll(*manager, testing::utcDate(2024, 3, 10, 12), counts,
               static_cast<std::size_t>(m) * 6);
    manager.reset();
  }
  // Let every query that is out finish, then run what reached the main queue.
  for (int round = 0; round < 50; ++round) {
    device.mainQueue().drain();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_LE(most(counts), 1) << "a completion was called twice";
}

using Request = void (VelkPermissionExtraction::*)(VelkPermissionExtraction::Completion);

struct PermissionAnswer {
  Result<bool> result;
  bool onCallersThread;
};

PermissionAnswer ask(Request request) {
  VelkPermissionExtraction permissions;
  const auto caller = std::this_thread::get_id();
  return firstAnswer<PermissionAnswer>([&](auto done) {
    (permissions.*request)([done, caller](Result<bool> result) {
      done(PermissionAnswer{std::move(result), std::this_thread::get_id() == caller});
    });
  });
}

TEST(PermissionTest, EachFamilyAsksToReadItsOwnTypesLeavingUnknownOnesOutSilently) {
  auto database = testing::databaseFromJson("{}");
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

  auto partial = testing::databaseFromJson(R"({"unknown_types":
      ["HKQuantityTypeIdentifierAppleStandTime", "HKCategoryTypeIdentifierSleepAnalysis"]})");
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
  auto database = testing::databaseFromJson(R"({"health_data_available": false})");
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
  const auto database = testing::databaseFromJson(R"({"authorization": {"success": false,
      "error": {"code": 4, "message": "Authorization request failed"}}})");
  const Error sheetFailed = database->authorizationAnswer().error.value();
  TestDevice device({.healthDatabase = database});

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
  TestDevice refusing(
      {.healthDatabase = testing::databaseFromJson(R"({"authorization": {"success": false}})")});
  const auto refused = ask(&VelkPermissionExtraction::requestAllPermissions);
  ASSERT_TRUE(refused.result.isSuccess());
  EXPECT_FALSE(refused.result.value());
}

}  // namespace
}  // namespace velk
