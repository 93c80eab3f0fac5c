// Asks the user, through the health store's authorisation sheet, for read access to what the
// summaries need: everything, or the types of one summary. It never asks to write.
//
// Each request builds its read set from the library's health data types in a fixed order,
// skipping silently the types the store does not know, and passes the store's answer on: the flag
// means that the request was handled, not that every type was granted (the store does not tell).
// The answer comes on the store's queue. On a device without health data the request fails at
// once, on the caller's thread, with healthKitNotavailable, and "No health data is available." is
// written to the debug output.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "velk/Error.h"
#include "velk/Result.h"

namespace velk {

class AppleHealthProvider;

class VelkPermissionExtraction {
 public:
  /// Typed forms: success with the store's flag, or failure with the error.
  using Completion = std::function<void(Result<bool>)>;
  /// Host forms: (flag, no error) or (false, the error).
  using HostCompletion = std::function<void(bool success, std::optional<Error> error)>;

  /// Builds its own health-store provider over the installed device.
  VelkPermissionExtraction();
  virtual ~VelkPermissionExtraction();
  VelkPermissionExtraction(const VelkPermissionExtraction&) = delete;
  VelkPermissionExtraction& operator=(const VelkPermissionExtraction&) = delete;

  /// Every health data type the library knows.
  virtual void requestAllPermissions(Completion completion);
  /// Sleep analysis only.
  virtual void requestSleepPermissions(Completion completion);
  /// The twenty types of the physical summary's family.
  virtual void requestPhysicalPermissions(Completion completion);
  /// Body mass, height, biological sex and date of birth. (The published name lacks a "t".)
  virtual void requesBodyPermissions(Completion completion);

  virtual void requestAllPermissionsObjc(HostCompletion completion);
  virtual void requestSleepPermissionsObjc(HostCompletion completion);
  virtual void requestPhysicalPermissionsObjc(HostCompletion completion);
  virtual void requesBodyPermissionsObjc(HostCompletion completion);

 protected:
  /// Set once in the constructor, never replaced.
  std::unique_ptr<AppleHealthProvider> appleHealthProvider;
};

}  // namespace velk
