#include "cli/Instant.h"

#include <gtest/gtest.h>

namespace velk::cli {
namespace {

double unixSeconds(const std::string& text, const std::string& zone) {
  const auto moment = parseInstant(text, platform::Calendar(zone));
  return moment ? moment->timeIntervalSince1970() : -1;
}

TEST(InstantTest, OffsetFormsNameTheirMomentWhateverTheZone) {
  EXPECT_EQ(unixSeconds("2024-03-10T08:30:00+01:00", "Asia/Tokyo"), 1710055800);
  EXPECT_EQ(unixSeconds("2024-03-10T07:30:00Z", "Asia/Tokyo"), 1710055800);
  EXPECT_EQ(unixSeconds("2024-03-10T07:30Z", "UTC"), 1710055800);
  EXPECT_DOUBLE_EQ(unixSeconds("2024-03-10T07:30:00.25Z", "UTC"), 1710055800.25);
}

TEST(InstantTest, LocalFormsAreReadInTheDeviceZone) {
  EXPECT_EQ(unixSeconds("2024-03-10T08:30", "Europe/Berlin"), 1710055800);
  EXPECT_EQ(unixSeconds("2024-03-10T08:30:00", "Europe/Berlin"), 1710055800);
  EXPECT_EQ(unixSeconds("2024-03-10", "Europe/Berlin"), 1710025200);  // local midnight
  // 02:30 does not exist on the morning the clocks go forward: it is read after the gap.
  EXPECT_EQ(unixSeconds("2024-03-31T02:30", "Europe/Berlin"),
            unixSeconds("2024-03-31T03:30", "Europe/Berlin"));
}

TEST(InstantTest, AnythingElseIsNoInstant) {
  for (const char* text : {"", "10/03/2024", "2024-03-10 08:30", "2024-03-10T08:30:00+0100x",
                           "2024-13-40", "yesterday", "2024-03-10T25:00"}) {
    EXPECT_EQ(unixSeconds(text, "UTC"), -1) << text;
  }
}

}  // namespace
}  // namespace velk::cli
