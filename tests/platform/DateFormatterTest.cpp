#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "platform/DateFormatter.h"
#include "support/TestDevice.h"
#include "velk/Calendar.h"

namespace velk::platform {
namespace {

using velk::testing::TestDevice;
using velk::testing::utcDate;

constexpr const char* kISO = "yyyy-MM-dd'T'HH:mm:ss.SSS";

TEST(DateFormatterTest, WritesAndStrictlyParsesThePatternInItsOwnZone) {
  TestDevice device({.timeZone = "Asia/Tokyo"});
  const Date moment = utcDate(2024, 3, 9, 23, 30, 0.25);
  const DateFormatter plusTwo(kISO, "Etc/GMT-2", "en");  // UTC+02:00 (the Etc sign is inverted)
  EXPECT_EQ(plusTwo.date("2024-03-10T01:30:00.250"), moment);
  // Before 1970 and before the reference moment.
  EXPECT_EQ(DateFormatter(kISO, "UTC", "en").string(utcDate(1969, 12, 31, 23, 59, 59.5)),
            "1969-12-31T23:59:59.500");
  const DateFormatter day("yyyy-MM-dd", "Europe/Berlin", "en");
  EXPECT_EQ(day.date("2024-03-31"), utcDate(2024, 3, 30, 23));
  for (const char* text : {"2024-02-30", "2024-03-31 and more", "31.03.2024", ""})
    EXPECT_EQ(day.date(text), std::nullopt) << text;
}

TEST(DateFormatterTest, AFormatterWithoutZoneFollowsTheDevice) {
  const DateFormatter local(kISO, std::nullopt, "en");
  const DateFormatter copy = local;
  const Date moment = utcDate(2024, 11, 3, 5, 30);
  {
    TestDevice device({.timeZone = "America/New_York"});
    EXPECT_EQ(local.string(moment), "2024-11-03T01:30:00.000");
    EXPECT_EQ(local.string(moment.addingTimeInterval(3600)), "2024-11-03T01:30:00.000");
    EXPECT_EQ(local.date("2024-11-03T01:30:00.000"), moment);
  }
  {
    TestDevice device({.timeZone = "Europe/Berlin"});
    EXPECT_EQ(copy.string(moment), "2024-11-03T06:30:00.000");
    EXPECT_EQ(local.date("2024-11-03T06:30:00.000"), moment);
  }
}

TEST(DateFormatterTest, NamesFollowTheLocaleInEitherSpelling) {
  TestDevice device;
  const Date moment = utcDate(2024, 3, 10, 12);
  EXPECT_EQ(DateFormatter("d MMMM yyyy", "UTC", "de-DE").string(moment), "10 März 2024");
  EXPECT_EQ(DateFormatter("d MMMM yyyy", "UTC", "fr_FR").string(moment), "10 mars 2024");
  EXPECT_EQ(DateFormatter("EEEE", "UTC", "en-US").string(moment), "Sunday");
}

TEST(DateFormatterConcurrencyTest, OneFormatterAndOneCalendarServeManyThreads) {
  TestDevice device({.timeZone = "Europe/Berlin"});
  const DateFormatter local(kISO, std::nullopt, "en");
  const Calendar berlin("Europe/Berlin");
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) {
        const Date moment = utcDate(2024, 1, 1 + t, 10, i % 60, 0.5);
        char expected[64];
        std::snprintf(expected, sizeof expected, "2024-01-%02dT11:%02d:00.500", 1 + t, i % 60);
        wrong += local.string(moment) != expected || local.date(expected) != moment;
        const Date changing = utcDate(2024, 3, 31, 1, i % 60, 0);  // just after the skipped hour
        wrong += berlin.date(berlin.components(changing)) != changing;
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace velk::platform
