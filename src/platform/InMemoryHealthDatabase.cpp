#include "platform/InMemoryHealthDatabase.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "platform/HKObjectType.h"
#include "velk/DebugOutput.h"

namespace velk::platform {

InMemoryHealthDatabase::InMemoryHealthDatabase()
    : InMemoryHealthDatabase(HealthDatabaseSettings{}, Characteristics{}, {}) {}

InMemoryHealthDatabase::InMemoryHealthDatabase(HealthDatabaseSettings settings,
                                               Characteristics characteristics,
                                               const std::vector<SampleRecord>& records)
    : settings_(std::move(settings)), characteristics_(std::move(characteristics)) {
  if (records.size() > std::numeric_limits<std::uint32_t>::max()) {
    fatalError("too many samples for one in-memory health database");
  }
  for (const SampleRecord& record : records) {
    auto sample = StoredSample::from(record);
    if (!sample) {
      fatalError("sample of " + record.type + " has unit \"" + record.unit +
                 "\", which is not a unit");
    }
    TypeTable& table = tables_[record.type];
    table.longestDuration =
        std::max(table.longestDuration, record.end.timeIntervalSince(record.start));
    table.samples.push_back(*sample);
  }
  for (auto& [type, table] : tables_) {
    table.byStart.resize(table.samples.size());
    for (std::uint32_t i = 0; i < table.byStart.size(); ++i) {
      table.byStart[i] = i;
    }
    std::stable_sort(table.byStart.begin(), table.byStart.end(),
                     [&samples = table.samples](std::uint32_t a, std::uint32_t b) {
                       return samples[a].start < samples[b].start;
                     });
  }
}

bool InMemoryHealthDatabase::isHealthDataAvailable() const {
  return settings_.healthDataAvailable;
}

bool InMemoryHealthDatabase::knowsType(const std::string& identifier) const {
  if (settings_.unknownTypes.contains(identifier)) {
    return false;
  }
  const auto& platform = HKObjectType::platformIdentifiers();
  return tables_.contains(identifier) ||
         std::find(platform.begin(), platform.end(), identifier) != platform.end();
}

AuthorizationAnswer InMemoryHealthDatabase::authorizationAnswer() const {
  return settings_.authorization;
}

std::optional<Error> InMemoryHealthDatabase::queryError(const std::string& typeIdentifier) const {
  if (const auto found = settings_.queryErrors.find(typeIdentifier);
      found != settings_.queryErrors.end()) {
    return found->second;
  }
  return std::nullopt;
}

bool InMemoryHealthDatabase::answersWithoutSamples(const std::string& typeIdentifier) const {
  return settings_.typesAnsweringWithoutSamples.contains(typeIdentifier);
}

Result<std::vector<StoredSample>> InMemoryHealthDatabase::samples(const std::string& typeIdentifier,
                                                                  std::optional<Date> start,
                                                                  std::optional<Date> end) const {
  using Samples = Result<std::vector<StoredSample>>;
  const auto found = tables_.find(typeIdentifier);
  if (found == tables_.end()) {
    return Samples::success({});
  }
  const TypeTable& table = found->second;
  // A sample that ends at or after `start` began no earlier than `start` minus the longest
  // duration of the type; one that begins before `end` lies before `end` in the index.
  auto first = table.byStart.begin();
  auto last = table.byStart.end();
  const auto startOf = [&table](std::uint32_t index) { return table.samples[index].start; };
  if (start) {
    const Date earliest = start->addingTimeInterval(-table.longestDuration);
    first =
        std::partition_point(first, last, [&](std::uint32_t i) { return startOf(i) < earliest; });
  }
  if (end) {
    last = std::partition_point(first, last, [&](std::uint32_t i) { return startOf(i) < *end; });
  }
  std::vector<std::uint32_t> positions(first, last);
  std::sort(positions.begin(), positions.end());  // back to stored order
  std::vector<StoredSample> result;
  result.reserve(positions.size());
  for (const std::uint32_t position : positions) {
    const StoredSample& sample = table.samples[position];
    if (start && sample.end < *start) {
      continue;
    }
    result.push_back(sample);
  }
  return Samples::success(std::move(result));
}

Characteristics InMemoryHealthDatabase::characteristics() const {
  return characteristics_;
}

std::vector<std::string> InMemoryHealthDatabase::sampleTypes() const {
  std::vector<std::string> held;
  for (const auto& [type, table] : tables_) {
    if (!table.samples.empty()) {
      held.push_back(type);
    }
  }
  std::sort(held.begin(), held.end());
  return held;
}

SourcePriority InMemoryHealthDatabase::sourcePriority() const {
  return SourcePriority(settings_.sourcePriority);
}

std::size_t InMemoryHealthDatabase::sampleCount() const {
  std::size_t count = 0;
  for (const auto& [type, table] : tables_) {
    count += table.samples.size();
  }
  return count;
}

}  // namespace velk::platform
