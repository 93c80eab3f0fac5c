#include "NativeDevice.h"

#include <array>
#include <chrono>
#include <future>
#include <sstream>
#include <utility>

#include "velk/Calendar.h"
#include "velk/DayDocuments.h"
#include "velk/TableFormats.h"
#include "velk/VelkPermissionExtraction.h"

namespace velk::python {
namespace {

std::recursive_mutex& leaseMutex() {
  static std::recursive_mutex mutex;
  return mutex;
}

struct DebugLines {
  std::mutex mutex;
  std::string text;
};

DebugLines& debugLines() {
  static DebugLines lines;
  return lines;
}

// The package's spelling of each option, for messages about them.
std::string argumentOf(ingest::DeviceOption option) {
  switch (option) {
    case ingest::DeviceOption::timeZone:
      return "tz";
    case ingest::DeviceOption::language:
      return "language";
    case ingest::DeviceOption::now:
      return "now";
    case ingest::DeviceOption::osVersion:
      return "os_version";
    case ingest::DeviceOption::state:
      return "state";
  }
  return "";
}

constexpr std::array<const char*, 3> kKindNames{"sleep", "physical", "body"};

Date dateOf(double unixSeconds) {
  return Date::fromUnixSeconds(unixSeconds);
}

}  // namespace

void fail(PackageError code, std::string message) {
  throw Failure{Error(kPackageErrorDomain, static_cast<std::int64_t>(code), std::move(message))};
}

HostLease::HostLease(std::shared_ptr<const platform::Device> device)
    : lock_(leaseMutex()), scope_(std::move(device)) {}

HostLease::~HostLease() {
  DebugLines& lines = debugLines();
  const std::lock_guard lock(lines.mutex);
  lines.text += debugOutput_.text();
}

std::string takeDebugOutput() {
  DebugLines& lines = debugLines();
  const std::lock_guard lock(lines.mutex);
  return std::exchange(lines.text, std::string());
}

std::vector<VelkDataType> kindsOf(const std::vector<std::string>& names) {
  auto kinds = table::kindsFromNames(names);
  if (!kinds || kinds->empty()) {
    fail(PackageError::badArgument, "kinds: give \"sleep\", \"physical\", \"body\" or \"all\"");
  }
  return *kinds;
}

NativeDevice::NativeDevice(const ingest::DeviceOptions& options) {
  auto made = ingest::makeDeviceFromOptions(options);
  if (made.isFailure()) {
    const Error& error = made.error();
    const auto option = ingest::deviceOptionOf(error);
    if (!option) {
      throw Failure{error};
    }
    throw Failure{
        Error(error.domain(), error.code(), argumentOf(*option) + ": " + error.message())};
  }
  device_ = made.value().device;
  timeZone_ = device_->timeZone();
  warnings_ = made.value().warnings;
}

std::shared_ptr<const platform::Device> NativeDevice::device() const {
  auto device = std::atomic_load(&device_);
  if (!device) {
    fail(PackageError::closed, "the device is closed");
  }
  return device;
}

void NativeDevice::close() {
  std::atomic_store(&device_, std::shared_ptr<const platform::Device>());
}

std::optional<double> NativeDevice::instant(const std::string& text) const {
  const HostLease lease(device());
  const auto moment = ingest::parseInstant(text, platform::Calendar(timeZone_));
  if (!moment) {
    return std::nullopt;
  }
  return moment->timeIntervalSince1970();
}

std::vector<double> NativeDevice::dayMoments(double first, double last, int hour,
                                             int minute) const {
  const HostLease lease(device());
  auto moments = table::dayMoments({dateOf(first), dateOf(last), hour, minute});
  if (moments.isFailure()) {
    throw Failure{moments.error()};
  }
  std::vector<double> seconds;
  for (const Date moment : moments.value()) {
    seconds.push_back(moment.timeIntervalSince1970());
  }
  return seconds;
}

std::vector<std::string> NativeDevice::summaries(const std::vector<std::string>& kinds,
                                                 double moment) const {
  SummaryReader reader(*this);
  auto documents = reader.day(kinds, moment);
  reader.close();
  return documents;
}

std::string NativeDevice::table(double first, double last, int hour, int minute,
                                const std::vector<std::string>& kinds, bool csv,
                                const table::DayProgress& progress) const {
  const auto asked = kindsOf(kinds);
  const HostLease lease(device());
  auto made = table::makeDayTable({dateOf(first), dateOf(last), hour, minute}, asked, progress);
  if (made.isFailure()) {
    throw Failure{made.error()};
  }
  std::ostringstream out;
  if (csv) {
    table::writeCsv(made.value(), out);
  } else {
    table::writeNdjson(made.value(), out);
  }
  return std::move(out).str();
}

std::map<std::string, std::optional<double>> NativeDevice::lastExtractionDates() const {
  const HostLease lease(device());
  const VelkExtractionManager manager;
  std::map<std::string, std::optional<double>> dates;
  for (const VelkDataType kind : allVelkDataTypes) {
    const auto stored = manager.getLastExtractionDate(kind);
    dates[kKindNames.at(static_cast<std::size_t>(kind))] =
        stored ? std::optional(stored->timeIntervalSince1970()) : std::nullopt;
  }
  return dates;
}

bool NativeDevice::requestPermissions(const std::string& family) const {
  using Request = void (VelkPermissionExtraction::*)(VelkPermissionExtraction::Completion);
  const std::map<std::string, Request> requests{
      {"all", &VelkPermissionExtraction::requestAllPermissions},
      {"sleep", &VelkPermissionExtraction::requestSleepPermissions},
      {"physical", &VelkPermissionExtraction::requestPhysicalPermissions},
      {"body", &VelkPermissionExtraction::requesBodyPermissions},
  };
  const auto request = requests.find(family);
  if (request == requests.end()) {
    fail(PackageError::badArgument,
         "kind: give \"all\", \"sleep\", \"physical\" or \"body\", not \"" + family + "\"");
  }
  const HostLease lease(device());
  VelkPermissionExtraction permissions;
  // The answer comes on the store's queue (or at once, on a device without health data).
  auto answer = std::make_shared<std::promise<Result<bool>>>();
  auto arrived = answer->get_future();
  (permissions.*
   (request->second))([answer](Result<bool> result) { answer->set_value(std::move(result)); });
  if (arrived.wait_for(std::chrono::minutes(2)) != std::future_status::ready) {
    throw Failure{table::noAnswerError()};
  }
  const Result<bool> result = arrived.get();
  if (result.isFailure()) {
    throw Failure{result.error()};
  }
  return result.value();
}

SummaryReader::SummaryReader(const NativeDevice& device) : device_(device.device()) {
  const HostLease lease(device_);
  manager_ = std::make_unique<VelkExtractionManager>();
}

SummaryReader::~SummaryReader() {
  close();
}

void SummaryReader::close() {
  if (manager_) {
    const HostLease lease(device_);
    manager_.reset();
  }
}

std::vector<std::string> SummaryReader::day(const std::vector<std::string>& kinds, double moment) {
  const auto asked = kindsOf(kinds);
  if (!manager_) {
    fail(PackageError::closed, "the reader is closed");
  }
  const HostLease lease(device_);
  std::vector<std::string> documents;
  for (auto& answer : table::askDay(*manager_, asked, dateOf(moment))) {
    if (answer.isFailure()) {
      throw Failure{answer.error()};
    }
    documents.push_back(answer.value().dump());
  }
  return documents;
}

}  // namespace velk::python
