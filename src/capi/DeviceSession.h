// The open device of the C interface: the platform::Device built from a configuration, installed
// for the process while the session is open, and the bookkeeping that lets it close safely while
// requests are out.
//
// Two kinds of claims keep an open session from being torn down under a caller: a call claim for
// the length of one synchronous call (a last-date read, a run of the main queue), and a request
// claim from the start of a request until its callback has run or has been dropped. Closing waits
// for both, running the main queue meanwhile so that answers parked there are dropped rather than
// kept forever, and only then uninstalls the device.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "velk/Device.h"
#include "velk/DeviceConfiguration.h"
#include "velk/Error.h"
#include "velk/Result.h"

namespace velk::capi {

class DeviceSession : public std::enable_shared_from_this<DeviceSession> {
 public:
  /// A claim on the open session; releasing it (or destroying it) ends the claim once.
  class Claim {
   public:
    enum class Kind { call, request };
    Claim(std::shared_ptr<DeviceSession> session, Kind kind);
    ~Claim();
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;

    DeviceSession& session() const { return *session_; }
    void release();

   private:
    std::shared_ptr<DeviceSession> session_;
    Kind kind_;
    std::atomic<bool> released_{false};
  };

  /// Builds and installs the device. Fails with VELK_ERROR_DEVICE_BUSY while another session is
  /// open or any other device is installed in the process.
  static Result<std::shared_ptr<DeviceSession>> open(
      const ingest::DeviceConfiguration& configuration, bool runMainQueueThread);

  ~DeviceSession();
  DeviceSession(const DeviceSession&) = delete;
  DeviceSession& operator=(const DeviceSession&) = delete;

  /// Waits for every claim, drops the callbacks still due, stops the main-queue thread and
  /// uninstalls the device. Refused from inside a callback.
  std::optional<Error> close();

  /// A claim for one synchronous call or one request; fails once closing has begun.
  Result<std::shared_ptr<Claim>> claim(Claim::Kind kind);

  /// Runs `callback` (a host callback) unless the session is closing. While it runs, the thread
  /// is marked as being inside a callback.
  void deliver(const std::function<void()>& callback);

  /// True once close() has begun; a run of the main queue stops early then.
  bool closing() const;

  const platform::Device& device() const { return *device_; }
  platform::MainQueue& mainQueue() const { return *device_->mainQueue(); }
  bool runsMainQueueThread() const { return runner_.joinable(); }
  const std::vector<std::string>& warnings() const { return warnings_; }

 private:
  DeviceSession(std::shared_ptr<platform::Device> device, std::vector<std::string> warnings);
  void startMainQueueThread();
  void stopMainQueueThread();
  void finish(Claim::Kind kind);
  void waitForStoreQueue() const;

  std::shared_ptr<platform::Device> device_;
  std::vector<std::string> warnings_;
  std::optional<platform::DeviceScope> scope_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool closing_ = false;
  std::size_t calls_ = 0;
  std::size_t requests_ = 0;

  std::shared_ptr<std::atomic<bool>> stopRunner_;
  std::thread runner_;
};

}  // namespace velk::capi
