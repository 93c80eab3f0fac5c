// The health store: the object through which an app queries health data, asks for permission and
// reads the user's characteristics. Every store made with the plain constructor reads the
// installed device's health database, as every store object on the phone talks to one service.
//
// Queries and authorisation requests return at once; their answers arrive later on the store's
// callback queue, a background serial queue of the database, never on the caller's thread.
// Characteristic reads are synchronous.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>

#include "platform/HKObjectType.h"
#include "platform/HKSampleQuery.h"
#include "platform/HKStatisticsCollectionQuery.h"
#include "velk/Calendar.h"
#include "velk/Error.h"
#include "velk/Result.h"

namespace velk::platform {

class HealthDatabase;

/// The platform's biological-sex values.
enum HKBiologicalSex : std::int64_t {
  HKBiologicalSexNotSet = 0,
  HKBiologicalSexFemale = 1,
  HKBiologicalSexMale = 2,
  HKBiologicalSexOther = 3,
};

/// The object a biological-sex read answers with. Values outside 0..3 are passed on as stored.
class HKBiologicalSexObject {
 public:
  explicit HKBiologicalSexObject(std::int64_t value) : value_(value) {}
  std::int64_t biologicalSex() const { return value_; }

 private:
  std::int64_t value_;
};

class HKHealthStore {
 public:
  using AuthorizationCompletion = std::function<void(bool success, std::optional<Error> error)>;

  /// A store over the installed device's health database.
  HKHealthStore();

  /// Whether the device has health data at all (the installed device's database says so).
  static bool isHealthDataAvailable();

  void executeQuery(HKSampleQuery query) const;
  void executeQuery(HKStatisticsCollectionQuery query) const;

  /// Records the read set with the database and answers with the database's authorisation answer.
  /// `shareTypes` is what the app would write; this store keeps no record of it.
  void requestAuthorization(std::optional<std::set<HKObjectType>> shareTypes,
                            std::set<HKObjectType> readTypes,
                            AuthorizationCompletion completion) const;

  Result<DateComponents> dateOfBirthComponents() const;
  Result<HKBiologicalSexObject> biologicalSex() const;

  const std::shared_ptr<HealthDatabase>& database() const { return database_; }

 private:
  std::shared_ptr<HealthDatabase> database_;
};

}  // namespace velk::platform
