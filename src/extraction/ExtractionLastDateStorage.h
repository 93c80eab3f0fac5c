// The date of the last extraction of each summary kind, kept in the device's standard user
// defaults under the kind's raw value. Every owner makes its own storage; all of them work on the
// one standard store, so what one writes every other reads.
//
// What is stored is the day that was asked for (the request's date), not the moment the
// extraction ran: asking for an older day moves the stored date back.
#pragma once

#include <memory>
#include <optional>

#include "platform/UserDefaults.h"
#include "velk/Date.h"
#include "velk/VelkDataType.h"

namespace velk {

class ExtractionLastDateStorage {
 public:
  /// Takes the installed device's standard user defaults. A device without one is a host error
  /// and stops the process.
  ExtractionLastDateStorage();

  /// The date stored for `kind`; absent when there is none or the entry is not a date.
  std::optional<Date> readLastDate(VelkDataType kind) const;

  /// Stores `date` for `kind`, replacing what was there.
  void storeLastDate(Date date, VelkDataType kind) const;

  /// The standard user defaults, as taken at construction (the name is spelled so on purpose).
  std::shared_ptr<platform::UserDefaults> defualts;
};

}  // namespace velk
