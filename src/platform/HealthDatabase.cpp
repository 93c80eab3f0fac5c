#include "platform/HealthDatabase.h"

#include <algorithm>
#include <set>

#include "platform/HKObjectType.h"
#include "platform/InMemoryHealthDatabase.h"
#include "velk/Device.h"

namespace velk::platform {

HealthDatabase::HealthDatabase() = default;
HealthDatabase::~HealthDatabase() = default;

std::shared_ptr<HealthDatabase> HealthDatabase::ofCurrentDevice() {
  if (auto database = Device::current()->healthDatabase()) {
    return database;
  }
  static const auto unavailable = [] {
    HealthDatabaseSettings settings;
    settings.healthDataAvailable = false;
    return std::make_shared<InMemoryHealthDatabase>(std::move(settings), Characteristics{},
                                                    std::vector<SampleRecord>{});
  }();
  return unavailable;
}

std::vector<std::string> HealthDatabase::sampleTypes() const {
  std::vector<std::string> held;
  for (const auto identifier : HKObjectType::platformIdentifiers()) {
    // A type whose samples cannot be read is held all the same: the read says what is wrong.
    const auto read = samples(std::string(identifier), std::nullopt, std::nullopt);
    if (read.isFailure() || !read.value().empty()) {
      held.emplace_back(identifier);
    }
  }
  std::sort(held.begin(), held.end());
  return held;
}

std::vector<std::string> HealthDatabase::sourceBundleIdentifiers() const {
  std::set<std::string> sources;
  for (const auto& type : sampleTypes()) {
    const auto read = samples(type, std::nullopt, std::nullopt);
    if (read.isFailure()) {
      continue;
    }
    for (const auto& sample : read.value()) {
      sources.insert(sample.sourceBundleIdentifier.str());
    }
  }
  return {sources.begin(), sources.end()};
}

SourcePriority HealthDatabase::sourcePriority() const {
  return SourcePriority{};
}

std::shared_ptr<SerialQueue> HealthDatabase::callbackQueue() const {
  std::lock_guard lock(mutex_);
  if (!queue_) {
    queue_ = SerialQueue::make("com.apple.healthkit.callbacks");
  }
  return queue_;
}

std::shared_ptr<QueryWorkers> HealthDatabase::queryWorkers() const {
  std::lock_guard lock(mutex_);
  if (!workers_) {
    workers_ = std::make_shared<QueryWorkers>(QueryWorkers::helpersForThisMachine());
  }
  return workers_;
}

void HealthDatabase::recordAuthorizationRequest(std::set<std::string> readTypes) {
  std::lock_guard lock(mutex_);
  authorizationRequests_.push_back(std::move(readTypes));
}

std::vector<std::set<std::string>> HealthDatabase::authorizationRequests() const {
  std::lock_guard lock(mutex_);
  return authorizationRequests_;
}

}  // namespace velk::platform
