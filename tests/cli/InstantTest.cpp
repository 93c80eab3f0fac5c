#include "cli/Instant.h"

#include <gtest/gtest.h>

namespace velk::cli {
namespace {

double unixSeconds(const std::string& text, const std::string& zone) {
  const auto moment = parseInstant(text, platform::Calendar(zone));
  return moment ? moment->timeIntervalSince1970() : -1;
}

// Offset forms name their moment whatever the zone; local forms are read in the device's zone; a
// day alone is its local midnight; anything else is no instant.
TEST(InstantTest, ReadsOffsetAndLocalFormsAndNothingElse) {
  const std::tuple<const char*, const char*, double> cases[] = {
      {"2024-03-10T08:30:00+01:00", "Asia/Tokyo", 1710055800},
      {"2024-03-10T07:30:00Z", "Asia/Tokyo", 1710055800},
      {"2024-03-10T08:30:00+0100", "UTC", 1710055800},
      {"2024-03-10T07:30Z", "UTC", 1710055800},
      {"2024-03-10T07:30:00.25Z", "UTC", 1710055800.25},
      {"2024-03-10T08:30", "Europe/Berlin", 1710055800},
      {"2024-03-10T08:30:00", "Europe/Berlin", 1710055800},
      {"2024-03-10", "Europe/Berlin", 1710025200},
      // As exports write dates: a space between date and time, an offset without a colon.
      {"2024-03-10 08:30", "Europe/Berlin", 1710055800},
      {"2024-03-10 08:30:00 +0100", "Asia/Tokyo", 1710055800},
      // 02:30 does not exist on the morning the clocks go forward: it is read after the gap.
      {"2024-03-31T02:30", "Europe/Berlin", 1711848600},
  };
  for (const auto& [text, zone, expected] : cases) {
    EXPECT_EQ(unixSeconds(text, zone), expected) << text << " in " << zone;
  }
  for (const char* text :
       {"", "10/03/2024", "2024-03-10_08:30", "2024-02-30", "2024-03-10T08:30:00+0100x",
        "2024-13-40", "yesterday", "2024-03-10T25:00"}) {
    EXPECT_EQ(unixSeconds(text, "UTC"), -1) << text;
  }
}

}  // namespace
}  // namespace velk::cli
