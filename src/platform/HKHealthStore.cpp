#include "platform/HKHealthStore.h"

#include <algorithm>
#include <cstdlib>

#include "platform/CanonicalUnits.h"
#include "platform/HealthDatabase.h"
#include "velk/DebugOutput.h"
#include "velk/Device.h"

namespace velk::platform {
namespace {

// The platform's code for "health data is not available on this device".
constexpr std::int64_t kHealthDataUnavailableCode = 1;

Error healthDataUnavailable() {
  return Error(kHealthKitErrorDomain, kHealthDataUnavailableCode,
               "Health data is unavailable on this device");
}

// Why a query cannot be answered with data: the device has none, the type fails, or the type is
// set to answer with nothing at all. Absent when the query runs normally.
struct Refusal {
  std::optional<Error> error;
};

std::optional<Refusal> refusalFor(const HealthDatabase& database, const std::string& type) {
  if (!database.isHealthDataAvailable()) {
    return Refusal{healthDataUnavailable()};
  }
  if (auto error = database.queryError(type)) {
    return Refusal{std::move(error)};
  }
  if (database.answersWithoutSamples(type)) {
    return Refusal{std::nullopt};
  }
  return std::nullopt;
}

Result<std::vector<StoredSample>> matchingSamples(const HealthDatabase& database,
                                                  const std::string& type,
                                                  const std::optional<NSPredicate>& predicate) {
  const NSPredicate::DateBounds bounds =
      predicate ? predicate->dateBounds() : NSPredicate::DateBounds{};
  auto read = database.samples(type, bounds.start, bounds.end);
  if (read.isFailure() || !predicate) {
    return read;
  }
  auto samples = std::move(read).value();
  std::erase_if(samples, [&predicate](const StoredSample& s) { return !predicate->evaluate(s); });
  return Result<std::vector<StoredSample>>::success(std::move(samples));
}

Date sortKey(const StoredSample& sample, const std::string& key) {
  if (key == HKSampleSortIdentifierStartDate) {
    return sample.start;
  }
  if (key == HKSampleSortIdentifierEndDate) {
    return sample.end;
  }
  fatalError("cannot sort samples by \"" + key + "\"");
}

// Sorts by the descriptors in turn; samples equal under all of them keep the stored order.
void sortSamples(std::vector<StoredSample>& samples,
                 const std::vector<NSSortDescriptor>& descriptors) {
  if (descriptors.empty()) {
    return;
  }
  for (const NSSortDescriptor& descriptor : descriptors) {
    sortKey(StoredSample{}, descriptor.key);  // an unknown key stops here, not mid-sort
  }
  std::stable_sort(samples.begin(), samples.end(),
                   [&descriptors](const StoredSample& a, const StoredSample& b) {
                     for (const NSSortDescriptor& descriptor : descriptors) {
                       const Date x = sortKey(a, descriptor.key);
                       const Date y = sortKey(b, descriptor.key);
                       if (x != y) {
                         return descriptor.ascending ? x < y : x > y;
                       }
                     }
                     return false;
                   });
}

std::shared_ptr<const HKSample> makeSample(const HKObjectType& type, const StoredSample& stored) {
  HKSampleHeader header{type,
                        stored.start,
                        stored.end,
                        stored.sourceBundleIdentifier,
                        stored.sourceName,
                        stored.wasUserEntered};
  if (stored.kind == SampleKind::quantity) {
    return std::make_shared<const HKQuantitySample>(std::move(header),
                                                    HKQuantity(*stored.unit, stored.value));
  }
  return std::make_shared<const HKCategorySample>(std::move(header),
                                                  static_cast<std::int64_t>(stored.value));
}

struct SampleAnswer {
  std::optional<HKSampleList> samples;
  std::optional<Error> error;
};

SampleAnswer answerSampleQuery(const HealthDatabase& database, const HKSampleQuery& query) {
  const std::string& type = query.sampleType().identifier();
  if (auto refusal = refusalFor(database, type)) {
    return {std::nullopt, std::move(refusal->error)};
  }
  auto read = matchingSamples(database, type, query.predicate());
  if (read.isFailure()) {
    return {std::nullopt, read.error()};
  }
  auto samples = std::move(read).value();
  sortSamples(samples, query.sortDescriptors());
  if (query.limit() != HKObjectQueryNoLimit &&
      samples.size() > static_cast<std::size_t>(query.limit())) {
    samples.resize(static_cast<std::size_t>(query.limit()));
  }
  HKSampleList list;
  list.reserve(samples.size());
  for (const StoredSample& sample : samples) {
    list.push_back(makeSample(query.sampleType(), sample));
  }
  return {std::move(list), std::nullopt};
}

struct CollectionAnswer {
  std::optional<HKStatisticsCollection> collection;
  std::optional<Error> error;
};

CollectionAnswer answerCollectionQuery(const HealthDatabase& database,
                                       const HKStatisticsCollectionQuery& query,
                                       const std::string& timeZone) {
  const std::string& type = query.quantityType().identifier();
  if (auto refusal = refusalFor(database, type)) {
    return {std::nullopt, std::move(refusal->error)};
  }
  auto read = matchingSamples(database, type, query.predicate());
  if (read.isFailure()) {
    return {std::nullopt, read.error()};
  }
  auto samples = std::move(read).value();
  // Only quantity samples can be summed; a sample of another kind under the type is not data.
  std::erase_if(samples, [](const StoredSample& s) { return s.kind != SampleKind::quantity; });
  HKUnit unit = HKUnit::countUnit();
  if (auto canonical = canonicalUnitForQuantityType(type)) {
    unit = *canonical;
  } else if (!samples.empty()) {
    unit = *samples.front().unit;
  }
  auto summable = std::make_shared<std::vector<SummableSample>>();
  summable->reserve(samples.size());
  for (const StoredSample& sample : samples) {
    summable->push_back(
        SummableSample{sample.start, sample.end, sample.unit->convert(sample.value, unit),
                       sample.sourceBundleIdentifier, sample.wasUserEntered.value_or(false)});
  }
  const bool sums = (static_cast<unsigned>(query.options()) &
                     static_cast<unsigned>(HKStatisticsOptions::cumulativeSum)) != 0;
  return {
      HKStatisticsCollection(query.quantityType(), unit, sums, query.anchorDate(), query.interval(),
                             timeZone, std::move(summable), database.sourcePriority()),
      std::nullopt};
}

}  // namespace

HKHealthStore::HKHealthStore() : database_(HealthDatabase::ofCurrentDevice()) {}

bool HKHealthStore::isHealthDataAvailable() {
  return HealthDatabase::ofCurrentDevice()->isHealthDataAvailable();
}

// Each answer is computed ahead by the database's query workers and handed to its handler on the
// callback queue, in the order the queries were started. The computation reaches the database
// through a plain pointer: the callback item, which holds the database, waits for it.
void HKHealthStore::executeQuery(HKSampleQuery query) const {
  const auto shared = std::make_shared<const HKSampleQuery>(std::move(query));
  auto answer = std::make_shared<SampleAnswer>();
  const auto workers = database_->queryWorkers();
  auto task = workers->offer([database = database_.get(), shared, answer] {
    *answer = answerSampleQuery(*database, *shared);
  });
  database_->callbackQueue()->async(
      [database = database_, workers, task = std::move(task), shared, answer] {
        workers->finish(*task);
        if (shared->resultsHandler()) {
          shared->resultsHandler()(*shared, std::move(answer->samples), std::move(answer->error));
        }
      });
}

void HKHealthStore::executeQuery(HKStatisticsCollectionQuery query) const {
  // The intervals follow the calendar of the device at the moment the query is started.
  std::string timeZone = Device::current()->timeZone();
  const auto shared = std::make_shared<const HKStatisticsCollectionQuery>(std::move(query));
  auto answer = std::make_shared<CollectionAnswer>();
  const auto workers = database_->queryWorkers();
  auto task =
      workers->offer([database = database_.get(), shared, answer, timeZone = std::move(timeZone)] {
        *answer = answerCollectionQuery(*database, *shared, timeZone);
      });
  database_->callbackQueue()->async(
      [database = database_, workers, task = std::move(task), shared, answer] {
        workers->finish(*task);
        if (shared->initialResultsHandler) {
          shared->initialResultsHandler(*shared, std::move(answer->collection),
                                        std::move(answer->error));
        }
      });
}

void HKHealthStore::requestAuthorization(std::optional<std::set<HKObjectType>> shareTypes,
                                         std::set<HKObjectType> readTypes,
                                         AuthorizationCompletion completion) const {
  (void)shareTypes;
  std::set<std::string> identifiers;
  for (const HKObjectType& type : readTypes) {
    identifiers.insert(type.identifier());
  }
  database_->recordAuthorizationRequest(std::move(identifiers));
  database_->callbackQueue()->async([database = database_, completion = std::move(completion)] {
    if (!completion) {
      return;
    }
    if (!database->isHealthDataAvailable()) {
      completion(false, healthDataUnavailable());
      return;
    }
    AuthorizationAnswer answer = database->authorizationAnswer();
    completion(answer.success, std::move(answer.error));
  });
}

Result<DateComponents> HKHealthStore::dateOfBirthComponents() const {
  if (!database_->isHealthDataAvailable()) {
    return Result<DateComponents>::failure(healthDataUnavailable());
  }
  auto dateOfBirth = database_->characteristics().dateOfBirth;
  if (auto* error = std::get_if<Error>(&dateOfBirth)) {
    return Result<DateComponents>::failure(*error);
  }
  return Result<DateComponents>::success(std::get<DateComponents>(dateOfBirth));
}

Result<HKBiologicalSexObject> HKHealthStore::biologicalSex() const {
  if (!database_->isHealthDataAvailable()) {
    return Result<HKBiologicalSexObject>::failure(healthDataUnavailable());
  }
  // A visit rather than get_if: GCC's optimiser warns of an uninitialised variant otherwise.
  struct Answer {
    Result<HKBiologicalSexObject> operator()(std::int64_t value) const {
      return Result<HKBiologicalSexObject>::success(HKBiologicalSexObject(value));
    }
    Result<HKBiologicalSexObject> operator()(const Error& error) const {
      return Result<HKBiologicalSexObject>::failure(error);
    }
  };
  return std::visit(Answer{}, database_->characteristics().biologicalSex);
}

}  // namespace velk::platform
