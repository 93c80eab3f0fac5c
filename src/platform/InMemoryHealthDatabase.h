// A health database that holds its samples in memory: filled once, from plain records, and
// read-only afterwards (so queries from many threads need no lock).
//
// Samples are kept per type in stored order, with an index by start time: a query for a day of a
// type with millions of samples looks at that day's samples only.
#pragma once

#include <unordered_map>

#include "platform/HealthDatabase.h"

namespace velk::platform {

class InMemoryHealthDatabase final : public HealthDatabase {
 public:
  /// Every quantity record's unit must be a unit (HKUnit::unitFromString); a record with a unit
  /// text that names none is a programming error of the caller and stops the process.
  InMemoryHealthDatabase(HealthDatabaseSettings settings, Characteristics characteristics,
                         const std::vector<SampleRecord>& records);

  /// An empty store that knows the platform's types.
  InMemoryHealthDatabase();

  bool isHealthDataAvailable() const override;
  bool knowsType(const std::string& identifier) const override;
  AuthorizationAnswer authorizationAnswer() const override;
  std::optional<Error> queryError(const std::string& typeIdentifier) const override;
  bool answersWithoutSamples(const std::string& typeIdentifier) const override;
  std::vector<StoredSample> samples(const std::string& typeIdentifier, std::optional<Date> start,
                                    std::optional<Date> end) const override;
  Characteristics characteristics() const override;
  std::vector<std::string> sampleTypes() const override;
  SourcePriority sourcePriority() const override;

  std::size_t sampleCount() const;

 private:
  struct TypeTable {
    std::vector<StoredSample> samples;   ///< stored order
    std::vector<std::uint32_t> byStart;  ///< positions in `samples`, by start time
    double longestDuration = 0;          ///< bounds how early an overlapping sample can start
  };

  HealthDatabaseSettings settings_;
  Characteristics characteristics_;
  std::unordered_map<std::string, TypeTable> tables_;
};

}  // namespace velk::platform
