// The health database: what every health-store object (HKHealthStore) of the device reads.
//
// On the phone all store objects talk to one system service. Here the installed Device holds one
// HealthDatabase, and each HKHealthStore made with the plain constructor reads it. Implementations
// serve recorded samples: InMemoryHealthDatabase (store files, tests), or a database over an
// imported export. The interface is narrow so that an implementation can answer from an index:
// the store asks for the candidates of one type in a time range and applies the exact predicate,
// sort and limit itself.
//
// The database also owns the store's callback queue: the health store delivers every query answer
// and authorisation answer there, never on the caller's thread.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/QueryWorkers.h"
#include "platform/SampleRecord.h"
#include "platform/SourcePriority.h"
#include "platform/StoredSample.h"
#include "velk/DispatchQueue.h"
#include "velk/Error.h"
#include "velk/Result.h"

namespace velk::platform {

/// The domain of the health store's own errors.
inline constexpr const char* kHealthKitErrorDomain = "com.apple.healthkit";

/// The answer that the authorisation sheet gives, for every request.
struct AuthorizationAnswer {
  bool success = true;
  std::optional<Error> error;
};

/// How the store behaves, apart from the samples it holds.
struct HealthDatabaseSettings {
  bool healthDataAvailable = true;
  /// Identifiers the store does not know, though the platform normally does.
  std::set<std::string> unknownTypes;
  AuthorizationAnswer authorization;
  /// Every query on one of these types fails with the error, without samples.
  std::map<std::string, Error> queryErrors;
  /// Every query on one of these types answers with neither samples (or collection) nor error.
  std::set<std::string> typesAnsweringWithoutSamples;
  /// Bundle identifiers that the statistics trust first, after hand-entered data, when sources
  /// overlap (see SourcePriority); empty for the default order.
  std::vector<std::string> sourcePriority;
};

class HealthDatabase {
 public:
  HealthDatabase();
  virtual ~HealthDatabase();
  HealthDatabase(const HealthDatabase&) = delete;
  HealthDatabase& operator=(const HealthDatabase&) = delete;

  virtual bool isHealthDataAvailable() const = 0;

  /// Whether the store can make a type object for the identifier.
  virtual bool knowsType(const std::string& identifier) const = 0;

  virtual AuthorizationAnswer authorizationAnswer() const = 0;

  /// The error every query on the type fails with, if any.
  virtual std::optional<Error> queryError(const std::string& typeIdentifier) const = 0;

  /// True when queries on the type answer with no sample list and no error.
  virtual bool answersWithoutSamples(const std::string& typeIdentifier) const = 0;

  /// The samples of the type that may overlap the range (end >= start, start < end; an absent
  /// bound is open), in stored order. A superset is allowed; the store applies the exact predicate.
  /// Fails when what holds them cannot be read whole (a damaged file): the query that asked
  /// completes with the error, never with a part of the samples.
  virtual Result<std::vector<StoredSample>> samples(const std::string& typeIdentifier,
                                                    std::optional<Date> start,
                                                    std::optional<Date> end) const = 0;

  virtual Characteristics characteristics() const = 0;

  /// The error of the first read of samples that failed, if any: the answers given since may
  /// lack data the database holds. Safe from any thread.
  virtual std::optional<Error> firstFailedRead() const { return std::nullopt; }

  /// The identifiers of the types it holds samples of, sorted. By default the platform's types
  /// that samples() finds samples of; a database that knows its types answers from them.
  virtual std::vector<std::string> sampleTypes() const;

  /// The bundle identifiers of the sources of its samples, sorted, each once. By default read
  /// from the samples of sampleTypes().
  virtual std::vector<std::string> sourceBundleIdentifiers() const;

  /// The order in which statistics trust overlapping sources. The default order unless a
  /// database is told otherwise.
  virtual SourcePriority sourcePriority() const;

  /// The installed device's database; a device without one behaves as a device without health
  /// data (a process-wide empty database whose health data is not available).
  static std::shared_ptr<HealthDatabase> ofCurrentDevice();

  /// The serial queue on which the store answers. Made on first use, one per database.
  std::shared_ptr<SerialQueue> callbackQueue() const;

  /// The helpers that compute the store's answers ahead of their turn on the callback queue
  /// (QueryWorkers.h). Made on first use, one per database, a helper per core beyond the first.
  std::shared_ptr<QueryWorkers> queryWorkers() const;

  /// Remembers the read set of an authorisation request, so that tests and the tool can see what
  /// was asked for. Safe from any thread.
  void recordAuthorizationRequest(std::set<std::string> readTypes);
  std::vector<std::set<std::string>> authorizationRequests() const;

 private:
  mutable std::mutex mutex_;
  mutable std::shared_ptr<SerialQueue> queue_;
  mutable std::shared_ptr<QueryWorkers> workers_;
  std::vector<std::set<std::string>> authorizationRequests_;
};

}  // namespace velk::platform
