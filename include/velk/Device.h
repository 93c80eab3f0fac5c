// The device: the one seam between the library and the machine it runs on.
//
// On the phone every health-store object talks to the same health database, every user-defaults
// object reads the same file, and the calendar knows the device's time zone. Off the phone the host
// (the tool, a test, the C interface) installs a Device for the process, and the library's
// substitutes for those services read it. The library itself never installs or configures one.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "velk/Date.h"
#include "velk/DispatchQueue.h"

namespace velk::platform {

class HealthDatabase;  // what the health-store objects read; the host builds it
class UserDefaults;    // the standard user-defaults store

/// The operating-system version, compared component by component.
struct OSVersion {
  int major = 17;
  int minor = 0;
  int patch = 0;
  friend auto operator<=>(const OSVersion&, const OSVersion&) = default;
};

struct DeviceSettings {
  std::string timeZone = "UTC";                       ///< IANA identifier of the current time zone
  std::vector<std::string> preferredLanguages{"en"};  ///< BCP 47 tags, most preferred first
  OSVersion osVersion{};
  std::function<Date()> clock;  ///< "now"; empty means the system clock
};

class Device {
 public:
  Device(DeviceSettings settings, std::shared_ptr<HealthDatabase> healthDatabase,
         std::shared_ptr<UserDefaults> userDefaults, std::shared_ptr<MainQueue> mainQueue);

  /// The installed device. Using the library with none installed is a programming error: stops.
  /// The pointer keeps the device alive for as long as the caller holds it.
  static std::shared_ptr<const Device> current();
  static bool isInstalled();

  const std::string& timeZone() const { return settings_.timeZone; }
  const std::vector<std::string>& preferredLanguages() const {
    return settings_.preferredLanguages;
  }
  const OSVersion& osVersion() const { return settings_.osVersion; }
  Date now() const;

  const std::shared_ptr<HealthDatabase>& healthDatabase() const { return healthDatabase_; }
  const std::shared_ptr<UserDefaults>& userDefaults() const { return userDefaults_; }
  const std::shared_ptr<MainQueue>& mainQueue() const { return mainQueue_; }

 private:
  friend class DeviceScope;
  DeviceSettings settings_;
  std::shared_ptr<HealthDatabase> healthDatabase_;
  std::shared_ptr<UserDefaults> userDefaults_;
  std::shared_ptr<MainQueue> mainQueue_;
};

/// Installs a device for the life of the scope and puts back the one before it. Scopes nest; they
/// are meant to be made on one thread (the host's main thread) while no request is running.
class DeviceScope {
 public:
  explicit DeviceScope(std::shared_ptr<const Device> device);
  ~DeviceScope();
  DeviceScope(const DeviceScope&) = delete;
  DeviceScope& operator=(const DeviceScope&) = delete;

 private:
  std::shared_ptr<const Device> previous_;
};

}  // namespace velk::platform
