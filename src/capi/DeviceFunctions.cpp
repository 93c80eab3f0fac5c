// velk_device_*, velk_main_queue_* and the small functions that need no handle.
#include <chrono>
#include <cmath>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "Guarded.h"
#include "Handles.h"
#include "velk/Calendar.h"
#include "velk/DebugOutput.h"

#ifndef VELK_VERSION_TEXT
#error "the build defines VELK_VERSION_TEXT"
#endif

using velk::Error;
using velk::capi::DeviceSession;
using velk::capi::guarded;
using velk::capi::interfaceError;
using velk::capi::nullArgument;

namespace {

// The main queue belongs to whoever the configuration named: the host or the device's thread.
std::optional<Error> refuseWithMainQueueThread(const DeviceSession& session) {
  if (session.runsMainQueueThread()) {
    return interfaceError(VELK_ERROR_WRONG_THREAD,
                          "the device runs its main queue on a thread of its own");
  }
  return std::nullopt;
}

// Whether the fields name a wall time as a clock shows it, each inside its range; the calendar
// would carry month 13 into the next year.
bool isWallTime(int year, int month, int day, int hour, int minute, int second) {
  if (year < 1 || year > 9999 || month < 1 || month > 12 || day < 1 || day > 31) {
    return false;
  }
  const std::chrono::year_month_day civil{std::chrono::year{year},
                                          std::chrono::month{static_cast<unsigned>(month)},
                                          std::chrono::day{static_cast<unsigned>(day)}};
  return civil.ok() && hour >= 0 && hour <= 23 && minute >= 0 && minute <= 59 && second >= 0 &&
         second <= 59;
}

}  // namespace

extern "C" {

const char* velk_version(void) {
  return VELK_VERSION_TEXT;
}

void velk_set_debug_output(velk_debug_callback callback, void* context) {
  if (callback == nullptr) {
    velk::platform::setDebugOutputHandler({});
    return;
  }
  velk::platform::setDebugOutputHandler([callback, context](std::string_view line) {
    const std::string text(line);
    callback(context, text.c_str());
  });
}

velk_error* velk_device_open(const velk_config* config, velk_device** device_out) {
  return guarded([&]() -> std::optional<Error> {
    if (device_out == nullptr) {
      return nullArgument("device_out");
    }
    *device_out = nullptr;
    if (config == nullptr) {
      return nullArgument("config");
    }
    auto opened = DeviceSession::open(config->configuration, config->runMainQueueThread);
    if (opened.isFailure()) {
      return opened.error();
    }
    auto session = std::move(opened).value();
    try {
      *device_out = new velk_device{session};
    } catch (...) {
      session->close();
      throw;
    }
    return std::nullopt;
  });
}

velk_error* velk_device_close(velk_device* device) {
  return guarded([&]() -> std::optional<Error> {
    if (device == nullptr) {
      return std::nullopt;
    }
    if (auto refused = device->session->close()) {
      return refused;
    }
    delete device;
    return std::nullopt;
  });
}

size_t velk_device_warning_count(const velk_device* device) {
  return device == nullptr ? 0 : device->session->warnings().size();
}

const char* velk_device_warning(const velk_device* device, size_t index) {
  if (device == nullptr || index >= device->session->warnings().size()) {
    return nullptr;
  }
  return device->session->warnings()[index].c_str();
}

velk_error* velk_device_date(const velk_device* device, int year, int month, int day, int hour,
                             int minute, int second, double* date_out) {
  return guarded([&]() -> std::optional<Error> {
    if (device == nullptr) {
      return nullArgument("device");
    }
    if (date_out == nullptr) {
      return nullArgument("date_out");
    }
    if (!isWallTime(year, month, day, hour, minute, second)) {
      return interfaceError(VELK_ERROR_INVALID_ARGUMENT,
                            "no such wall time: " + std::to_string(year) + "-" +
                                std::to_string(month) + "-" + std::to_string(day) + " " +
                                std::to_string(hour) + ":" + std::to_string(minute) + ":" +
                                std::to_string(second) +
                                " (year 1-9999, month 1-12, a day of that month, hour 0-23, "
                                "minute and second 0-59)");
    }
    velk::platform::DateComponents components;
    components.year = year;
    components.month = month;
    components.day = day;
    components.hour = hour;
    components.minute = minute;
    components.second = second;
    const auto date =
        velk::platform::Calendar(device->session->device().timeZone()).date(components);
    if (!date) {
      return interfaceError(VELK_ERROR_INVALID_ARGUMENT, "the wall time names no instant");
    }
    *date_out = date->timeIntervalSinceReferenceDate();
    return std::nullopt;
  });
}

velk_error* velk_main_queue_run_until_idle(velk_device* device, size_t* ran_out) {
  return guarded([&]() -> std::optional<Error> {
    if (device == nullptr) {
      return nullArgument("device");
    }
    if (auto refused = refuseWithMainQueueThread(*device->session)) {
      return refused;
    }
    auto claimed = device->session->claim(DeviceSession::Claim::Kind::call);
    if (claimed.isFailure()) {
      return claimed.error();
    }
    const std::size_t ran = device->session->mainQueue().drain();
    if (ran_out != nullptr) {
      *ran_out = ran;
    }
    return std::nullopt;
  });
}

velk_error* velk_main_queue_run_for(velk_device* device, uint32_t milliseconds) {
  return velk_main_queue_run_until(
      device, [](void*) { return 0; }, nullptr, milliseconds, nullptr);
}

velk_error* velk_main_queue_run_until(velk_device* device, velk_condition done, void* context,
                                      uint32_t timeout_milliseconds, int* satisfied_out) {
  return guarded([&]() -> std::optional<Error> {
    if (device == nullptr) {
      return nullArgument("device");
    }
    if (done == nullptr) {
      return nullArgument("done");
    }
    if (auto refused = refuseWithMainQueueThread(*device->session)) {
      return refused;
    }
    auto claimed = device->session->claim(DeviceSession::Claim::Kind::call);
    if (claimed.isFailure()) {
      return claimed.error();
    }
    // A device that starts closing on another thread ends the run early (done() stays false), so
    // that close() does not wait for the whole timeout.
    const DeviceSession& session = *device->session;
    bool satisfied = false;
    session.mainQueue().runUntil(
        [&] {
          satisfied = done(context) != 0;
          return satisfied || session.closing();
        },
        std::chrono::milliseconds(timeout_milliseconds));
    if (satisfied_out != nullptr) {
      *satisfied_out = satisfied ? 1 : 0;
    }
    return std::nullopt;
  });
}

}  // extern "C"
