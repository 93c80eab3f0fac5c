#include <gtest/gtest.h>

#include "support/TempDir.h"
#include "velk/ingest/ExportErrors.h"
#include "velk/ingest/SourceIdentifierRule.h"

namespace velk::ingest {
namespace {

constexpr std::string_view kWatchDevice =
    "<<HKDevice: 0x28347b340>, name:Apple Watch, manufacturer:Apple Inc., model:Watch, "
    "hardware:Watch4,2, software:7.1>";
constexpr std::string_view kPhoneDevice =
    "<<HKDevice: 0x281307c50>, name:iPhone, manufacturer:Apple Inc., model:iPhone, "
    "hardware:iPhone12,3, software:14.0>";

bool passesSleepFilter(const std::string& identifier) {
  return identifier.find("com.apple.health") != std::string::npos;
}

TEST(ExportSourceRuleTest, ApplesOwnSourcesPassTheSleepFilterAndAppsDoNot) {
  const SourceIdentifierRule rule;
  // Device sources by their names, also localised and with a no-break space.
  EXPECT_TRUE(passesSleepFilter(rule.identifierFor("Anna's iPhone", "", "")));
  EXPECT_TRUE(passesSleepFilter(rule.identifierFor("User\u2019s Apple\u00a0Watch", "6.1.3", "")));
  EXPECT_TRUE(passesSleepFilter(rule.identifierFor("iPhone de Marie", "17.1", "")));
  // A renamed watch, known by its device and its OS version.
  EXPECT_TRUE(passesSleepFilter(rule.identifierFor("\U0001F55B\U0001F550", "7.1", kWatchDevice)));
  // The Health app.
  EXPECT_EQ(rule.identifierFor("Health", "17.0", ""), "com.apple.health");
  // Apps, even one that attaches the phone's device to its samples.
  EXPECT_FALSE(passesSleepFilter(rule.identifierFor("AutoSleep", "6.1", "")));
  EXPECT_FALSE(passesSleepFilter(rule.identifierFor("AutoSleep", "7.4", kPhoneDevice)));
  EXPECT_FALSE(passesSleepFilter(rule.identifierFor("Sleep Cycle", "", "")));
  EXPECT_FALSE(passesSleepFilter(rule.identifierFor("WatchSleeper", "14.0", "")));
  EXPECT_FALSE(passesSleepFilter(rule.identifierFor("com.apple.health", "1", "")));
  EXPECT_EQ(rule.identifierFor("Sleep Cycle", "", ""), "export.source.sleep-cycle");
}

TEST(ExportSourceRuleTest, DistinctNamesKeepDistinctIdentifiers) {
  const SourceIdentifierRule rule;
  const auto first = rule.identifierFor("\U0001F55B", "1", "");
  const auto second = rule.identifierFor("\U0001F51C", "1", "");
  EXPECT_NE(first, second);
  EXPECT_NE(rule.identifierFor("Withings", "", ""), rule.identifierFor("Withings\u00e9", "", ""));
  EXPECT_EQ(first, rule.identifierFor("\U0001F55B", "1", "")) << "the rule is a pure function";
}

TEST(ExportSourceRuleTest, MappingFileOverridesTheRule) {
  testing::TempDir dir;
  const auto path = dir.write(
      "sources.json", R"({"AutoSleep": "com.apple.health.autosleep", "Anna's iPhone": "x.y"})");
  const auto rule = SourceIdentifierRule::fromMappingFile(path);
  ASSERT_TRUE(rule.isSuccess());
  EXPECT_EQ(rule.value().identifierFor("AutoSleep", "", ""), "com.apple.health.autosleep");
  EXPECT_EQ(rule.value().identifierFor("Anna's iPhone", "", ""), "x.y");
  EXPECT_EQ(rule.value().identifierFor("Sleep Cycle", "", ""), "export.source.sleep-cycle");

  for (const char* bad : {R"(["AutoSleep"])", R"({"AutoSleep": 3})", "{not json"}) {
    const auto refused = SourceIdentifierRule::fromMappingFile(dir.write("bad.json", bad));
    ASSERT_TRUE(refused.isFailure()) << bad;
    EXPECT_EQ(refused.error().code(),
              static_cast<std::int64_t>(ExportErrorCode::invalidSourceMapping));
  }
  EXPECT_TRUE(SourceIdentifierRule::fromMappingFile(dir.file("missing.json")).isFailure());
}

}  // namespace
}  // namespace velk::ingest
