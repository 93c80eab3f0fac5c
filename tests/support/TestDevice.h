// A device for one test: installs a platform::Device for the life of the object and puts back the
// one before it when the object goes away.
//
//   velk::testing::TestDevice device({.timeZone = "Europe/Berlin",
//                                     .now = velk::testing::utcDate(2024, 3, 10, 12)});
//   ... library code now sees Berlin, that clock and a fresh user-defaults store ...
//   device.setNow(later);                       // move the clock
//   device.userDefaults().date("some_key");     // look at what the library stored
//   device.mainQueue().drain();                 // run what the library put on the main queue
//
// Unless the options give them, the device gets: the UTC zone, the language list {"en"}, OS version
// 17.0, a clock fixed at kDefaultNow (2024-06-15T12:00:00Z), a user-defaults store in an SQLite
// file in a temporary folder of its own (removed afterwards), a new MainQueue, and no health
// database (nullptr). Make it on the test's main thread, as DeviceScope asks.
#pragma once

#include <atomic>
#include <filesystem>
#include <iomanip>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/UserDefaults.h"
#include "support/TempDir.h"
#include "velk/Date.h"
#include "velk/Device.h"
#include "velk/DispatchQueue.h"

namespace velk {
/// Lets test failures show dates as seconds since the reference moment.
inline void PrintTo(Date date, std::ostream* out) {
  *out << "Date(" << std::setprecision(17) << date.timeIntervalSinceReferenceDate() << ")";
}
}  // namespace velk

namespace velk::testing {

/// The moment `year`-`month`-`day` `hour`:`minute`:`second` in UTC (proleptic Gregorian), worked
/// out without the library's calendar so that tests can check it against an independent answer.
Date utcDate(int year, int month, int day, int hour = 0, int minute = 0, double second = 0);

struct TestDeviceOptions {
  std::string timeZone = "UTC";  ///< IANA identifier
  std::vector<std::string> preferredLanguages{"en"};
  platform::OSVersion osVersion{};
  std::optional<Date> now{};  ///< the fixed "now"; absent means TestDevice::kDefaultNow
  std::shared_ptr<platform::HealthDatabase> healthDatabase{};  ///< may stay null
  std::shared_ptr<platform::UserDefaults> userDefaults{};  ///< absent: a fresh file-backed store
  std::shared_ptr<platform::MainQueue> mainQueue{};        ///< absent: a new MainQueue
};

class TestDevice {
 public:
  /// 2024-06-15T12:00:00Z: the clock of a device whose options name no "now".
  static constexpr Date kDefaultNow = Date::fromUnixSeconds(1718452800.0);

  explicit TestDevice(TestDeviceOptions options = {});
  ~TestDevice();
  TestDevice(const TestDevice&) = delete;
  TestDevice& operator=(const TestDevice&) = delete;

  const std::shared_ptr<const platform::Device>& device() const { return device_; }
  platform::UserDefaults& userDefaults() const { return *device_->userDefaults(); }
  platform::MainQueue& mainQueue() const { return *device_->mainQueue(); }

  /// The file behind the default user-defaults store (empty when the options gave a store).
  const std::filesystem::path& userDefaultsPath() const { return userDefaultsPath_; }

  /// Moves the device clock; safe while library code reads it on other threads.
  void setNow(Date now);

  /// The moment that this wall time names in the device's zone (through the library's calendar).
  Date localDate(int year, int month, int day, int hour = 0, int minute = 0,
                 double second = 0) const;

 private:
  TempDir folder_;
  std::filesystem::path userDefaultsPath_;
  std::shared_ptr<std::atomic<double>> now_;
  std::shared_ptr<const platform::Device> device_;
  std::unique_ptr<platform::DeviceScope> scope_;
};

}  // namespace velk::testing
