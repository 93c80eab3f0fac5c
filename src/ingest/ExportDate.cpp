#include "ingest/ExportDate.h"

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
  return platform::readIso8601Day(text);
}

}  // namespace velk::ingest
