#include "velk/Device.h"
#include "velk/DebugOutput.h"

#include <atomic>
#include <chrono>
#include <utility>

namespace velk::platform {
namespace {

// The installed device. Readers take a copy of the pointer, so a device stays alive for as long as
// a request that started under it still runs, even after its scope has ended.
std::shared_ptr<const Device>& installedSlot() {
  static std::shared_ptr<const Device> slot;
  return slot;
}

std::shared_ptr<const Device> loadInstalled() {
  return std::atomic_load(&installedSlot());
}

}  // namespace

Device::Device(DeviceSettings settings, std::shared_ptr<HealthDatabase> healthDatabase,
               std::shared_ptr<UserDefaults> userDefaults, std::shared_ptr<MainQueue> mainQueue)
    : settings_(std::move(settings)),
      healthDatabase_(std::move(healthDatabase)),
      userDefaults_(std::move(userDefaults)),
      mainQueue_(std::move(mainQueue)) {}

std::shared_ptr<const Device> Device::current() {
  auto device = loadInstalled();
  if (!device) {
    fatalError("no platform::Device is installed (install one with DeviceScope)");
  }
  return device;
}

bool Device::isInstalled() {
  return loadInstalled() != nullptr;
}

Date Device::now() const {
  if (settings_.clock) {
    return settings_.clock();
  }
  const auto since1970 = std::chrono::system_clock::now().time_since_epoch();
  return Date::fromUnixSeconds(std::chrono::duration<double>(since1970).count());
}

DeviceScope::DeviceScope(std::shared_ptr<const Device> device)
    : previous_(std::atomic_exchange(&installedSlot(), std::move(device))) {}

DeviceScope::~DeviceScope() {
  std::atomic_store(&installedSlot(), std::move(previous_));
}

}  // namespace velk::platform
