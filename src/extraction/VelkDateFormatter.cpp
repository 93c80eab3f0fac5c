#include "extraction/VelkDateFormatter.h"

#include "velk/Calendar.h"
#include "velk/DebugOutput.h"
#include "velk/Device.h"

namespace velk {
namespace {

constexpr const char* kTimestampPattern = "yyyy-MM-dd'T'HH:mm:ss.SSS";
constexpr const char* kDayPattern = "yyyy-MM-dd";
constexpr const char* kUTC = "UTC";

std::string firstPreferredLanguage() {
  const auto& languages = platform::Device::current()->preferredLanguages();
  if (languages.empty()) {
    platform::fatalError(
        "the device lists no preferred language; date formatters need one for their locale");
  }
  return languages.front();
}

}  // namespace

VelkDateFormatter::VelkDateFormatter()
    : dateISOFormatterDate(kTimestampPattern, kUTC, firstPreferredLanguage()),
      dateISOFormatterDateLocal(kTimestampPattern, std::nullopt, firstPreferredLanguage()),
      UTCdateFormatterDate(kDayPattern, kUTC, firstPreferredLanguage()),
      dateFormatterDate(kDayPattern, std::nullopt, firstPreferredLanguage()) {}

std::optional<std::string> VelkDateFormatter::formatDate(
    std::optional<Date> date, const platform::DateFormatter& formatter) const {
  if (!date) {
    return std::nullopt;
  }
  return formatter.string(*date);
}

std::optional<std::int64_t> VelkDateFormatter::getAge(std::optional<Date> birthDate) const {
  if (!birthDate) {
    return std::nullopt;
  }
  const auto device = platform::Device::current();
  return platform::Calendar(device->timeZone()).yearsBetween(*birthDate, device->now());
}

}  // namespace velk
