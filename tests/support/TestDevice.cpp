#include "support/TestDevice.h"

#include <chrono>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "velk/Calendar.h"

namespace velk::testing {

Date utcDate(int year, int month, int day, int hour, int minute, double second) {
  using namespace std::chrono;
  const sys_days midnight{std::chrono::year{year} /
                          std::chrono::month{static_cast<unsigned>(month)} /
                          std::chrono::day{static_cast<unsigned>(day)}};
  const double unixSeconds = static_cast<double>(midnight.time_since_epoch().count()) * 86400.0 +
                             hour * 3600.0 + minute * 60.0 + second;
  return Date::fromUnixSeconds(unixSeconds);
}

TestDevice::TestDevice(TestDeviceOptions options)
    : now_(std::make_shared<std::atomic<double>>(
          options.now.value_or(kDefaultNow).timeIntervalSinceReferenceDate())) {
  if (!platform::Calendar::isKnownTimeZone(options.timeZone)) {
    throw std::invalid_argument("TestDevice: unknown time zone " + options.timeZone);
  }
  auto userDefaults = std::move(options.userDefaults);
  if (!userDefaults) {
    userDefaultsPath_ = folder_.file("Preferences/standard-defaults.sqlite");
    auto opened = platform::UserDefaults::open(userDefaultsPath_);
    if (!opened.isSuccess()) {
      throw std::runtime_error(opened.error().message());
    }
    userDefaults = std::move(opened).value();
  }
  auto mainQueue =
      options.mainQueue ? std::move(options.mainQueue) : std::make_shared<platform::MainQueue>();

  platform::DeviceSettings settings;
  settings.timeZone = std::move(options.timeZone);
  settings.preferredLanguages = std::move(options.preferredLanguages);
  settings.osVersion = options.osVersion;
  settings.clock = [now = now_] { return Date::fromReferenceSeconds(now->load()); };
  device_ = std::make_shared<const platform::Device>(std::move(settings),
                                                     std::move(options.healthDatabase),
                                                     std::move(userDefaults), std::move(mainQueue));
  scope_ = std::make_unique<platform::DeviceScope>(device_);
}

// The scope goes first, so that the previous device is back before this one's parts go away.
TestDevice::~TestDevice() {
  scope_.reset();
}

void TestDevice::setNow(Date now) {
  now_->store(now.timeIntervalSinceReferenceDate());
}

Date TestDevice::localDate(int year, int month, int day, int hour, int minute,
                           double second) const {
  const platform::Calendar calendar(device_->timeZone());
  const auto whole = static_cast<std::int64_t>(second);
  const auto nanoseconds =
      static_cast<std::int64_t>(std::llround((second - static_cast<double>(whole)) * 1e9));
  const auto date =
      calendar.date(platform::DateComponents{year, month, day, hour, minute, whole, nanoseconds});
  if (!date) {
    throw std::invalid_argument("TestDevice: no such local time");
  }
  return *date;
}

}  // namespace velk::testing
