#include "platform/HealthDatabase.h"

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
