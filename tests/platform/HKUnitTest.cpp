#include <gtest/gtest.h>

#include <string>

#include "platform/HKQuantity.h"
#include "platform/HKUnit.h"

namespace velk::platform {
namespace {

HKUnit unit(const char* text) {
  auto parsed = HKUnit::unitFromString(text);
  EXPECT_TRUE(parsed) << text;
  return parsed.value_or(HKUnit::countUnit());
}

TEST(HKUnitTest, ConvertsWithinADimension) {
  EXPECT_NEAR(HKQuantity(HKUnit::poundUnit(), 160.0)
                  .doubleValueForUnit(HKUnit::gramUnitWithMetricPrefix(HKMetricPrefix::kilo)),
              72.5747792, 1e-6);
  EXPECT_DOUBLE_EQ(
      HKQuantity(HKUnit::meterUnit(), 1.78)
          .doubleValueForUnit(HKUnit::meterUnitWithMetricPrefix(HKMetricPrefix::centi)),
      178.0);
  EXPECT_DOUBLE_EQ(unit("kJ").convert(4.184, HKUnit::kilocalorieUnit()), 1.0);
  EXPECT_DOUBLE_EQ(HKUnit::largeCalorieUnit().convert(12.9, HKUnit::kilocalorieUnit()), 12.9);
  EXPECT_DOUBLE_EQ(
      unit("s").convert(0.045, HKUnit::secondUnitWithMetricPrefix(HKMetricPrefix::milli)), 45.0);
  EXPECT_NEAR(HKUnit::degreeFahrenheitUnit().convert(98.6, HKUnit::degreeCelsiusUnit()), 37.0,
              1e-9);
  EXPECT_DOUBLE_EQ(unit("%").convert(97.0, HKUnit::countUnit()), 0.97);
}

TEST(HKUnitTest, ReadsCompoundUnitsAsThePlatformWritesThem) {
  const HKUnit perMinute = HKUnit::countUnit().unitDividedByUnit(HKUnit::minuteUnit());
  EXPECT_EQ(perMinute, unit("count/min"));
  EXPECT_DOUBLE_EQ(unit("count/s").convert(1.0, perMinute), 60.0);
  // The platform's VO2 max unit, in both spellings.
  EXPECT_DOUBLE_EQ(unit("mL/min\xC2\xB7kg").convert(35.0, unit("mL/(kg*min)")), 35.0);
  EXPECT_DOUBLE_EQ(unit("L/min*kg").convert(1.0, unit("mL/kg*min")), 1000.0);
  EXPECT_DOUBLE_EQ(unit("m^2").convert(1.0, unit("cm^2")), 10000.0);
  EXPECT_DOUBLE_EQ(unit("mg/dL").convert(100.0, unit("g/L")), 1.0);
  EXPECT_TRUE(unit("mmol<180.15588000005408>/L").isCompatible(unit("mol/L")));
  EXPECT_TRUE(unit("min").isCompatible(unit("hr")));  // "min" is a minute, not a milli-inch
}

TEST(HKUnitTest, RejectsTextsThatNameNoUnitAndTellsDimensionsApart) {
  for (const char* text : {"", "kilograms", "count/", "(kg", "degC/min", "kcount", "m^", "k"}) {
    EXPECT_FALSE(HKUnit::unitFromString(text)) << text;
  }
  // Parentheses nest a few levels deep, not as deep as a hostile text goes (a million levels
  // once overflowed the stack).
  EXPECT_DOUBLE_EQ(unit("((g))/(((min)))").convert(60.0, unit("g/s")), 1.0);
  const std::size_t deep = 1'000'000;
  std::string nested(deep, '(');
  nested.append("kg").append(deep, ')');
  EXPECT_FALSE(HKUnit::unitFromString(nested));
  EXPECT_FALSE(unit("kg").isCompatible(HKUnit::countUnit()));
  EXPECT_FALSE(unit("count/min").isCompatible(HKUnit::countUnit()));
  EXPECT_TRUE(unit("kcal").isCompatible(unit("J")));
}

TEST(HKUnitDeathTest, ConvertingBetweenDimensionsStops) {
  EXPECT_DEATH(HKQuantity(HKUnit::kilocalorieUnit(), 1.0).doubleValueForUnit(HKUnit::countUnit()),
               "incompatible units.*kcal.*count");
}

}  // namespace
}  // namespace velk::platform
