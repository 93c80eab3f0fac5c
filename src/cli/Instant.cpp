#include "cli/Instant.h"

#include <limits>

#include "platform/Iso8601.h"

namespace velk::cli {
namespace {

// Forms with an offset name their moment themselves; the others are wall times, which the
// calendar places in the device's zone (and past a DST gap).
constexpr platform::Iso8601Syntax kInstantSyntax{
    .secondsOptional = true,
    .fractionDigits = std::numeric_limits<std::size_t>::max(),
    .offsetOptional = true,
    .offsetWithoutColon = true,
    .dayAlone = true,
};

}  // namespace

std::optional<Date> parseInstant(const std::string& text, const platform::Calendar& calendar) {
  const auto value = platform::readIso8601(text, kInstantSyntax);
  if (!value) {
    return std::nullopt;
  }
  return value->utcOffsetSeconds ? value->moment() : calendar.date(value->components);
}

}  // namespace velk::cli
