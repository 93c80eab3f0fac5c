#include "body/VelkBirthProvider.h"

#include "velk/Calendar.h"

namespace velk {

namespace {

// The store answers with empty components when the user has entered no date of birth; those name
// no day, and filling in the calendar's smallest values would invent one (year 1).
bool denotesADay(const platform::DateComponents& components) {
  return components.year.has_value() || components.month.has_value() || components.day.has_value();
}

}  // namespace

Result<std::optional<Date>> VelkBirthProvider::getBirthDate() const {
  auto components = appleHealthProvider.healthStore->dateOfBirthComponents();
  if (components.isFailure()) {
    return Result<std::optional<Date>>::failure(components.error());
  }
  if (!denotesADay(components.value())) {
    return Result<std::optional<Date>>::success(std::nullopt);
  }
  // The components carry the platform's Gregorian calendar in the device's zone: a birthday is a
  // local day, and so it is written back as that same local day.
  return Result<std::optional<Date>>::success(
      platform::Calendar::current().date(components.value()));
}

}  // namespace velk
