#include "velk/ingest/ExportDate.h"

#include <gtest/gtest.h>

namespace velk::ingest {
namespace {

// 2024-03-10T07:30:00Z, seconds since 1970.
constexpr double kMorningUnix = 1710055800.0;

TEST(ExportDateTest, ReadsEveryExportFormAsTheSameMoment) {
  for (const char* text :
       {"2024-03-10 08:30:00 +0100", "2024-03-10 02:30:00 -0500", "2024-03-10T07:30:00Z",
        "2024-03-10 08:30:00 +01:00", "20240310083000+0100"}) {
    const auto date = ExportDate::parse(text);
    ASSERT_TRUE(date.has_value()) << text;
    EXPECT_DOUBLE_EQ(date->timeIntervalSince1970(), kMorningUnix) << text;
  }
}

TEST(ExportDateTest, CrossesDayMonthAndLeapBoundariesThroughTheOffset) {
  // 00:30 at +0200 on 1 March 2020 is 22:30 UTC on 29 February.
  const auto date = ExportDate::parse("2020-03-01 00:30:00 +0200");
  ASSERT_TRUE(date.has_value());
  EXPECT_DOUBLE_EQ(date->timeIntervalSince1970(), 1583015400.0);
  EXPECT_DOUBLE_EQ(ExportDate::parse("2001-01-01 00:00:00 +0000")->timeIntervalSinceReferenceDate(),
                   0.0);
}

TEST(ExportDateTest, RefusesWhatIsNoDate) {
  for (const char* text :
       {"", "2024-03-10", "2024-02-30 08:00:00 +0100", "2024-03-10 25:00:00 +0100",
        "2024-03-10 08:30:00", "2024-03-10 08:30:00 +0100 junk", "2024/03/10 08:30:00 +0100",
        "2015110717192+0100", "2024-13-10 08:30:00 +0100", "2024-03-10 08:60:00 +0100",
        "2024-03-10 08:30:00 +2400", "2024-03-10 08:30:00 *0100", "2024-03-1a 08:30:00 +0100"}) {
    EXPECT_FALSE(ExportDate::parse(text).has_value()) << text;
  }
}

TEST(ExportDateTest, ReadsBirthDaysAsComponents) {
  const auto day = ExportDate::parseDay("1989-04-24");
  ASSERT_TRUE(day.has_value());
  EXPECT_EQ(day->year, 1989);
  EXPECT_EQ(day->month, 4);
  EXPECT_EQ(day->day, 24);
  EXPECT_FALSE(day->hour.has_value());
  EXPECT_FALSE(ExportDate::parseDay("1989-02-30").has_value());
  EXPECT_FALSE(ExportDate::parseDay("").has_value());
}

}  // namespace
}  // namespace velk::ingest
