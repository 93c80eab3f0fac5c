#include "DeviceSession.h"

#include <chrono>
#include <future>
#include <utility>

#include "CapiErrors.h"
#include "platform/HealthDatabase.h"

namespace velk::capi {
namespace {

using namespace std::chrono_literals;

// The session that is open in this process, if any. Held weakly: the handles own sessions.
std::mutex openSessionMutex;
std::weak_ptr<DeviceSession> openSession;

// Set while a host callback runs on this thread (nested callbacks restore the outer value).
thread_local bool insideCallback = false;

}  // namespace

DeviceSession::Claim::Claim(std::shared_ptr<DeviceSession> session, Kind kind)
    : session_(std::move(session)), kind_(kind) {}

DeviceSession::Claim::~Claim() {
  release();
}

void DeviceSession::Claim::release() {
  if (!released_.exchange(true)) {
    session_->finish(kind_);
  }
}

Result<std::shared_ptr<DeviceSession>> DeviceSession::open(
    const ingest::DeviceConfiguration& configuration, bool runMainQueueThread) {
  using Opened = Result<std::shared_ptr<DeviceSession>>;
  std::lock_guard lock(openSessionMutex);
  if (!openSession.expired() || platform::Device::isInstalled()) {
    return Opened::failure(interfaceError(
        VELK_ERROR_DEVICE_BUSY, "another device is open in this process; close it first"));
  }
  auto built = ingest::makeConfiguredDevice(configuration);
  if (built.isFailure()) {
    return Opened::failure(built.error());
  }
  auto configured = std::move(built).value();
  std::shared_ptr<DeviceSession> session(
      new DeviceSession(std::move(configured.device), std::move(configured.warnings)));
  session->scope_.emplace(session->device_);
  if (runMainQueueThread) {
    session->startMainQueueThread();
  }
  openSession = session;
  return Opened::success(std::move(session));
}

DeviceSession::DeviceSession(std::shared_ptr<platform::Device> device,
                             std::vector<std::string> warnings)
    : device_(std::move(device)), warnings_(std::move(warnings)) {}

DeviceSession::~DeviceSession() {
  // Handles hold the session; the last one goes after close() (velk_device_close always closes
  // first), so there is nothing left to wait for. Stopping the thread is only a safety net.
  stopMainQueueThread();
}

void DeviceSession::startMainQueueThread() {
  stopRunner_ = std::make_shared<std::atomic<bool>>(false);
  runner_ = std::thread([queue = device_->mainQueue(), stop = stopRunner_] {
    while (!stop->load()) {
      queue->runUntil([&stop] { return stop->load(); }, 250ms);
    }
  });
}

void DeviceSession::stopMainQueueThread() {
  if (!runner_.joinable()) {
    return;
  }
  stopRunner_->store(true);
  device_->mainQueue()->async([] {});  // wakes the thread if it waits for work
  runner_.join();
}

Result<std::shared_ptr<DeviceSession::Claim>> DeviceSession::claim(Claim::Kind kind) {
  using Claimed = Result<std::shared_ptr<Claim>>;
  {
    std::lock_guard lock(mutex_);
    if (closing_) {
      return Claimed::failure(
          interfaceError(VELK_ERROR_DEVICE_CLOSED, "the device has been closed"));
    }
    ++(kind == Claim::Kind::call ? calls_ : requests_);
  }
  return Claimed::success(std::make_shared<Claim>(shared_from_this(), kind));
}

bool DeviceSession::closing() const {
  std::lock_guard lock(mutex_);
  return closing_;
}

void DeviceSession::finish(Claim::Kind kind) {
  {
    std::lock_guard lock(mutex_);
    --(kind == Claim::Kind::call ? calls_ : requests_);
  }
  changed_.notify_all();
}

void DeviceSession::deliver(const std::function<void()>& callback) {
  // Holding the lock only for the test is enough: close() waits for the request claim that the
  // caller still holds, so a callback that passed the test finishes before close() goes on.
  {
    std::lock_guard lock(mutex_);
    if (closing_) {
      return;
    }
  }
  const bool outer = insideCallback;
  insideCallback = true;
  callback();
  insideCallback = outer;
}

std::optional<Error> DeviceSession::close() {
  if (insideCallback) {
    return interfaceError(VELK_ERROR_WRONG_THREAD,
                          "a device cannot be closed from inside one of its callbacks");
  }
  {
    std::unique_lock lock(mutex_);
    if (closing_) {
      return std::nullopt;
    }
    closing_ = true;
    // Synchronous calls end by themselves; they may run the main queue, so wait for them before
    // running it here.
    changed_.wait(lock, [this] { return calls_ == 0; });
  }
  stopMainQueueThread();
  // Answers parked on the main queue hold request claims; running them drops their callbacks
  // (closing_ is set) and releases the claims. Requests still at the store arrive meanwhile.
  for (;;) {
    device_->mainQueue()->drain();
    std::unique_lock lock(mutex_);
    if (changed_.wait_for(lock, 5ms, [this] { return requests_ == 0; })) {
      break;
    }
  }
  waitForStoreQueue();
  scope_.reset();
  std::lock_guard lock(openSessionMutex);
  if (openSession.lock().get() == this) {
    openSession.reset();
  }
  return std::nullopt;
}

// A claim ends inside the store's work item that delivered (or dropped) the answer; the rest of
// that item may still read the installed device. An item queued behind it runs after it.
void DeviceSession::waitForStoreQueue() const {
  const auto& database = device_->healthDatabase();
  if (!database) {
    return;
  }
  std::promise<void> passed;
  auto done = passed.get_future();
  database->callbackQueue()->async([&passed] { passed.set_value(); });
  done.wait();
}

}  // namespace velk::capi
