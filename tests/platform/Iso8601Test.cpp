#include "platform/Iso8601.h"

#include <gtest/gtest.h>

#include <limits>

namespace velk::platform {
namespace {

// 2024-03-10T07:30:00Z in seconds since 1970: what every form below names.
constexpr double kMoment = 1710055800;

double unixSeconds(std::string_view text, const Iso8601Syntax& syntax) {
  const auto value = readIso8601(text, syntax);
  const auto moment = value ? value->moment() : std::nullopt;
  return moment ? moment->timeIntervalSince1970() : -1;
}

// Each variant is read where the syntax takes it and nowhere else; the extended form always.
TEST(Iso8601Test, EachVariantIsReadOnlyWhereTheSyntaxTakesIt) {
  EXPECT_EQ(unixSeconds("2024-03-10T08:30:00+01:00", {}), kMoment);
  EXPECT_EQ(unixSeconds("2024-03-10T02:30:00-05:00", {}), kMoment);
  EXPECT_EQ(unixSeconds("2024-03-10T07:30:00Z", {}), kMoment);
  const std::tuple<const char*, Iso8601Syntax, double> variants[] = {
      {"2024-03-10 08:30:00+01:00", {.spaceForT = true}, kMoment},
      {"20240310083000+01:00", {.basicForm = true}, kMoment},
      {"2024-03-10T08:30+01:00", {.secondsOptional = true}, kMoment},
      {"2024-03-10T07:30:00.25Z", {.fractionDigits = 2}, kMoment + 0.25},
      {"2024-03-10T07:29:60Z", {.leapSecond = true}, kMoment},
      {"2024-03-10T08:30:00+0100", {.offsetWithoutColon = true}, kMoment},
      {"2024-03-10T08:30:00 +01:00", {.spaceBeforeOffset = true}, kMoment},
  };
  for (const auto& [text, syntax, expected] : variants) {
    EXPECT_EQ(unixSeconds(text, syntax), expected) << text;
    EXPECT_FALSE(readIso8601(text, {})) << text;
  }
  EXPECT_FALSE(readIso8601("2024-03-10T07:30:00.250Z", {.fractionDigits = 2}));
}

// Wall times and days come back as components for a calendar to place; they name no moment.
TEST(Iso8601Test, WallTimesAndDaysAreComponentsWithoutAMoment) {
  const Iso8601Syntax local{.fractionDigits = 3, .offsetOptional = true, .dayAlone = true};
  const auto wallTime = readIso8601("2024-03-10T08:30:05.25", local);
  ASSERT_TRUE(wallTime);
  EXPECT_EQ(wallTime->components, (DateComponents{2024, 3, 10, 8, 30, 5, 250'000'000}));
  EXPECT_FALSE(wallTime->moment());
  const auto day = readIso8601("2024-03-10", local);
  ASSERT_TRUE(day);
  EXPECT_EQ(day->components,
            (DateComponents{2024, 3, 10, std::nullopt, std::nullopt, std::nullopt, std::nullopt}));
  EXPECT_FALSE(readIso8601("2024-03-10", {}));
  EXPECT_EQ(readIso8601Day("2024-02-29"),
            (DateComponents{2024, 2, 29, std::nullopt, std::nullopt, std::nullopt, std::nullopt}));
  for (const char* text : {"2023-02-29", "2024-03-10T00:00:00Z", "20240310", "2024-3-10"}) {
    EXPECT_FALSE(readIso8601Day(text)) << text;
  }
}

// Fields that name no real day, time or offset, and stray text, are refused by every syntax.
TEST(Iso8601Test, NoSyntaxReadsWhatIsNoDate) {
  const Iso8601Syntax everything{.spaceForT = true,
                                 .basicForm = true,
                                 .secondsOptional = true,
                                 .fractionDigits = std::numeric_limits<std::size_t>::max(),
                                 .leapSecond = true,
                                 .offsetOptional = true,
                                 .offsetWithoutColon = true,
                                 .spaceBeforeOffset = true,
                                 .dayAlone = true};
  for (const char* text :
       {"", "2024-02-30T08:00:00Z", "2024-13-10T08:00:00Z", "2024-03-10T24:00:00Z",
        "2024-03-10T08:60:00Z", "2024-03-10T08:30:61Z", "2024-03-10T08:30:00+24:00",
        "2024-03-10T08:30:00+01:60", "2024-03-10T08:30:00.Z", "2024-03-10T08:30:00Z junk",
        "2024-03-10T08:30:00  +0100", "2024/03/10 08:30:00", "2024-03-1a", "2024-03-10T8:30",
        "2024-03-10T08:30:00*0100", "2024-03-10T08:30:00+01"}) {
    EXPECT_FALSE(readIso8601(text, everything)) << text;
  }
}

}  // namespace
}  // namespace velk::platform
