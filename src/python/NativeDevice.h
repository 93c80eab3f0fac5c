// The device behind a Python velk.Device: the library's calls that the package makes, in plain
// C++ over the installed front, with nothing of Python in them (Module.cpp binds them).
//
// The library reads its device process-wide, so every call installs this device for its own
// duration (HostLease): calls from many Python threads, on one device or on several, run one at a
// time, each on the calling thread, which drives the device's main queue while it waits.
// Failures are thrown as Failure, which Module.cpp turns into the package's exceptions.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "velk/DayTable.h"
#include "velk/DebugOutput.h"
#include "velk/Device.h"
#include "velk/DeviceOptions.h"
#include "velk/Error.h"
#include "velk/VelkExtractionManager.h"

namespace velk::python {

/// The domain of the package's own errors: bad arguments, a closed device.
inline constexpr const char* kPackageErrorDomain = "velk.python";
enum class PackageError : std::int64_t { badArgument = 1, closed = 2 };

/// An error on its way to Python.
struct Failure {
  Error error;
};

[[noreturn]] void fail(PackageError code, std::string message);

/// The device installed for one call, and the process-wide lock that keeps calls apart. Calls on
/// one thread may nest (a progress callback that asks again). What the library writes to its
/// debug output meanwhile is kept for takeDebugOutput(). Take a lease only without the GIL: a
/// thread that holds one may wait for the GIL (its progress callback calls Python).
class HostLease {
 public:
  explicit HostLease(std::shared_ptr<const platform::Device> device);
  ~HostLease();
  HostLease(const HostLease&) = delete;
  HostLease& operator=(const HostLease&) = delete;

 private:
  std::unique_lock<std::recursive_mutex> lock_;
  platform::DeviceScope scope_;
  platform::DebugOutputCapture debugOutput_;
};

/// The debug output of the calls since the last take, whole lines; safe from any thread.
std::string takeDebugOutput();

class NativeDevice {
 public:
  /// The device the options describe; a fault of an option names it as the package spells it
  /// ("tz: ...").
  explicit NativeDevice(const ingest::DeviceOptions& options);

  const std::string& timeZone() const { return timeZone_; }
  /// What the data source reported on the way (damaged parts of an export).
  const std::vector<std::string>& warnings() const { return warnings_; }

  /// Unix seconds of the moment `text` names (the tool's INSTANT forms, local ones in this
  /// device's zone); absent when it names none.
  std::optional<double> instant(const std::string& text) const;

  /// Unix seconds of each day from the day of `first` to the day of `last` at hour:minute local.
  std::vector<double> dayMoments(double first, double last, int hour, int minute) const;

  /// The day's documents of `kinds` ("sleep", "physical", "body", "all") as JSON texts, from an
  /// extraction manager of their own, as `velk summary KIND --date` prints them.
  std::vector<std::string> summaries(const std::vector<std::string>& kinds, double moment) const;

  /// The day table of `kinds` as NDJSON, one line per day, exactly as `velk table --format
  /// ndjson` writes it, or with `csv` as `velk table` writes CSV. `progress` is asked after each
  /// day whether to go on.
  std::string table(double first, double last, int hour, int minute,
                    const std::vector<std::string>& kinds, bool csv,
                    const table::DayProgress& progress) const;

  /// Unix seconds of the stored last extraction per kind ("sleep", "physical", "body").
  std::map<std::string, std::optional<double>> lastExtractionDates() const;

  /// Requests read permission for "all", "sleep", "physical" or "body": the store's flag.
  bool requestPermissions(const std::string& family) const;

  /// Releases the device; later calls fail with PackageError::closed.
  void close();

  /// The device, or PackageError::closed.
  std::shared_ptr<const platform::Device> device() const;

 private:
  std::shared_ptr<const platform::Device> device_;
  std::string timeZone_;
  std::vector<std::string> warnings_;
};

/// Documents of many days from one extraction manager, as a host that keeps one asks them (the
/// tool's `summary --from --to`).
class SummaryReader {
 public:
  explicit SummaryReader(const NativeDevice& device);
  ~SummaryReader();
  SummaryReader(const SummaryReader&) = delete;
  SummaryReader& operator=(const SummaryReader&) = delete;

  std::vector<std::string> day(const std::vector<std::string>& kinds, double moment);

  /// Releases the manager (under the device, as it was made). Idempotent.
  void close();

 private:
  std::shared_ptr<const platform::Device> device_;
  std::unique_ptr<VelkExtractionManager> manager_;
};

/// The kinds that the names ask for, or PackageError::badArgument naming the argument.
std::vector<VelkDataType> kindsOf(const std::vector<std::string>& names);

}  // namespace velk::python
