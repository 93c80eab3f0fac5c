#include "ingest/ExportDate.h"

#include <string>

#include "platform/Iso8601.h"

namespace velk::ingest {

namespace {

constexpr platform::Iso8601Syntax kExportSyntax{
    .spaceForT = true,
    .basicForm = true,
    .leapSecond = true,
    .offsetWithoutColon = true,
    .spaceBeforeOffset = true,
};

}  // namespace

std::optional<Date> ExportDate::parse(std::string_view text) {
  const auto value = platform::readIso8601(text, kExportSyntax);
  return value ? value->moment() : std::nullopt;
}

std::optional<platform::DateComponents> ExportDate::parseDay(std::string_view text) {
  // "1988-10-29", or "19881029" as the first exports wrote it.
  if (text.size() == 8 && text.find_first_not_of("0123456789") == std::string_view::npos) {
    const std::string extended = std::string(text.substr(0, 4)) + "-" +
                                 std::string(text.substr(4, 2)) + "-" +
                                 std::string(text.substr(6, 2));
    return platform::readIso8601Day(extended);
  }
  return platform::readIso8601Day(text);
}

}  // namespace velk::ingest
