// A generator of synthetic health exports shaped like real ones: an iPhone and an Apple Watch
// that both count steps (overlapping), the watch's active energy every minute while awake and
// basal energy every few minutes, heart rate every few minutes, HRV and resting heart rate
// daily, nightly sleep stages, and a weekly weight in pounds from a scale app. About 0.6 MB of
// XML per day. The same seed and day count always give the same bytes.
#pragma once

#include <zip.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

namespace velk::bench {

struct ExportShape {
  int days = 30;
  std::uint32_t seed = 2024;
  /// The first day, as days since 1970-01-01 (default 2021-01-01).
  std::int64_t firstDay = 18628;
  /// The local time zone's offset in the dates, in minutes east of UTC.
  int offsetMinutes = 60;
};

class ExportGenerator {
 public:
  explicit ExportGenerator(ExportShape shape) : shape_(shape), random_(shape.seed) {}

  /// Writes the whole export to `out`; returns the number of records written.
  std::uint64_t write(std::FILE* out) {
    out_ = out;
    records_ = 0;
    emit(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE HealthData [\n"
        "<!ELEMENT HealthData (ExportDate,Me,(Record|Correlation|Workout|ActivitySummary)*)>\n"
        "<!ATTLIST HealthData\n  locale CDATA #REQUIRED\n>\n"
        "<!ELEMENT ExportDate EMPTY>\n"
        "<!ELEMENT Me EMPTY>\n"
        "<!ELEMENT Record ((MetadataEntry|HeartRateVariabilityMetadataList)*)>\n"
        "<!ELEMENT MetadataEntry EMPTY>\n"
        "<!ATTLIST MetadataEntry\n  key   CDATA #REQUIRED\n  value CDATA #REQUIRED\n>\n"
        "]>\n"
        "<HealthData locale=\"en_GB\">\n");
    const auto exportSeconds = (shape_.firstDay + shape_.days) * 86400 + 8 * 3600;
    emit(" <ExportDate value=\"" + localDate(exportSeconds) + "\"/>\n");
    emit(
        " <Me HKCharacteristicTypeIdentifierDateOfBirth=\"1988-06-15\" "
        "HKCharacteristicTypeIdentifierBiologicalSex=\"HKBiologicalSexFemale\" "
        "HKCharacteristicTypeIdentifierBloodType=\"HKBloodTypeNotSet\" "
        "HKCharacteristicTypeIdentifierFitzpatrickSkinType=\"HKFitzpatrickSkinTypeNotSet\" "
        "HKCharacteristicTypeIdentifierCardioFitnessMedicationsUse=\"None\"/>\n");
    for (int day = 0; day < shape_.days; ++day) {
      writeDay((shape_.firstDay + day) * 86400 - shape_.offsetMinutes * 60, day);
    }
    emit("</HealthData>\n");
    return records_;
  }

 private:
  static constexpr const char* kWatchName = "Jane\xE2\x80\x99s Apple\xC2\xA0Watch";
  static constexpr const char* kWatchVersion = "9.1";
  static constexpr const char* kWatchDevice =
      "&lt;&lt;HKDevice: 0x283a4c0f0&gt;, name:Apple Watch, manufacturer:Apple Inc., model:Watch, "
      "hardware:Watch6,2, software:9.1&gt;";
  static constexpr const char* kPhoneName = "Jane\xE2\x80\x99s iPhone";
  static constexpr const char* kPhoneVersion = "16.1";
  static constexpr const char* kPhoneDevice =
      "&lt;&lt;HKDevice: 0x283a4c2d0&gt;, name:iPhone, manufacturer:Apple Inc., model:iPhone, "
      "hardware:iPhone14,5, software:16.1&gt;";

  // `midnight`: the day's local midnight in Unix seconds.
  void writeDay(std::int64_t midnight, int day) {
    const std::int64_t wake = midnight + 7 * 3600 + uniform(0, 3600);
    const std::int64_t bed = midnight + 23 * 3600 + uniform(-1800, 1800);
    for (std::int64_t t = wake; t < bed; t += 60) {  // active energy, every minute awake
      watchQuantity("HKQuantityTypeIdentifierActiveEnergyBurned", "kcal", t, t + 60,
                    number(0.05, 2.5, 3));
    }
    for (std::int64_t t = midnight; t < midnight + 86400; t += 600) {  // basal energy
      watchQuantity("HKQuantityTypeIdentifierBasalEnergyBurned", "kcal", t, t + 600,
                    number(10.0, 14.0, 3));
    }
    for (std::int64_t t = midnight + uniform(0, 300); t < midnight + 86400;
         t += uniform(200, 420)) {
      const bool asleep = t < wake || t > bed;
      watchQuantity("HKQuantityTypeIdentifierHeartRate", "count/min", t, t,
                    std::to_string(asleep ? uniform(48, 62) : uniform(60, 125)),
                    "  <MetadataEntry key=\"HKMetadataKeyHeartRateMotionContext\" value=\"" +
                        std::to_string(uniform(0, 1)) + "\"/>\n");
    }
    for (std::int64_t t = wake; t < bed; t += uniform(300, 900)) {  // steps, phone and watch
      const auto length = uniform(60, 600);
      const auto steps = std::to_string(uniform(10, 900));
      watchQuantity("HKQuantityTypeIdentifierStepCount", "count", t, t + length, steps);
      record("HKQuantityTypeIdentifierStepCount", kPhoneName, kPhoneVersion, kPhoneDevice, "count",
             t + uniform(0, 60), t + length + uniform(0, 60), steps, "");
    }
    for (int i = 0; i < 4; ++i) {
      const auto t = wake + uniform(0, bed - wake);
      watchQuantity("HKQuantityTypeIdentifierHeartRateVariabilitySDNN", "ms", t, t + 60,
                    number(20, 90, 4));
    }
    watchQuantity("HKQuantityTypeIdentifierRestingHeartRate", "count/min", midnight + 60, bed - 60,
                  std::to_string(uniform(50, 64)));
    writeNight(midnight - 86400 + 23 * 3600 + uniform(-1800, 1800), wake);
    if (day % 7 == 0) {
      record("HKQuantityTypeIdentifierBodyMass", "Withings", "6.2.1", "", "lb", wake + 600,
             wake + 600, number(140, 150, 1), "");
    }
  }

  void writeNight(std::int64_t from, std::int64_t until) {
    record("HKCategoryTypeIdentifierSleepAnalysis", kPhoneName, kPhoneVersion, "", "", from, until,
           "HKCategoryValueSleepAnalysisInBed", "");
    static constexpr const char* kStages[] = {
        "HKCategoryValueSleepAnalysisAsleepCore", "HKCategoryValueSleepAnalysisAsleepDeep",
        "HKCategoryValueSleepAnalysisAsleepCore", "HKCategoryValueSleepAnalysisAsleepREM",
        "HKCategoryValueSleepAnalysisAwake"};
    std::size_t stage = 0;
    for (std::int64_t t = from + 600; t < until;) {
      const auto end = std::min(until, t + uniform(300, 2700));
      record("HKCategoryTypeIdentifierSleepAnalysis", kWatchName, kWatchVersion, kWatchDevice, "",
             t, end, kStages[stage], "");
      stage = (stage + 1) % 5;
      t = end;
    }
  }

  void watchQuantity(const char* type, const char* unit, std::int64_t start, std::int64_t end,
                     const std::string& value, const std::string& children = "") {
    record(type, kWatchName, kWatchVersion, kWatchDevice, unit, start, end, value, children);
  }

  void record(const char* type, const char* source, const char* version, const char* device,
              const char* unit, std::int64_t start, std::int64_t end, const std::string& value,
              const std::string& children) {
    std::string line = " <Record type=\"";
    line += type;
    line += "\" sourceName=\"";
    line += source;
    line += "\" sourceVersion=\"";
    line += version;
    if (*device != '\0') {
      line += "\" device=\"";
      line += device;
    }
    if (*unit != '\0') {
      line += "\" unit=\"";
      line += unit;
    }
    line += "\" creationDate=\"" + localDate(end + 30) + "\" startDate=\"" + localDate(start) +
            "\" endDate=\"" + localDate(end) + "\" value=\"" + value + "\"";
    line += children.empty() ? "/>\n" : ">\n" + children + " </Record>\n";
    emit(line);
    ++records_;
  }

  // Unix seconds as "2021-01-05 07:12:00 +0100" in the shape's zone.
  std::string localDate(std::int64_t unixSeconds) const {
    using namespace std::chrono;
    const sys_seconds local{seconds{unixSeconds + shape_.offsetMinutes * 60}};
    const auto day = floor<days>(local);
    const year_month_day ymd{day};
    const hh_mm_ss time{local - day};
    char text[40];
    const int offset = shape_.offsetMinutes;
    std::snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d:%02d %c%02d%02d", int(ymd.year()),
                  unsigned(ymd.month()), unsigned(ymd.day()), int(time.hours().count()),
                  int(time.minutes().count()), int(time.seconds().count()), offset < 0 ? '-' : '+',
                  std::abs(offset) / 60, std::abs(offset) % 60);
    return text;
  }

  std::int64_t uniform(std::int64_t low, std::int64_t high) {
    return std::uniform_int_distribution<std::int64_t>(low, high)(random_);
  }

  std::string number(double low, double high, int decimals) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*f", decimals,
                  std::uniform_real_distribution<double>(low, high)(random_));
    return text;
  }

  void emit(const std::string& text) { std::fwrite(text.data(), 1, text.size(), out_); }

  ExportShape shape_;
  std::mt19937 random_;
  std::FILE* out_ = nullptr;
  std::uint64_t records_ = 0;
};

/// Packs the export XML at `xmlPath` into an archive as the Health app does: the export under
/// apple_health_export/ with an export_cda.xml beside it. False when writing fails.
inline bool writeExportArchive(const char* xmlPath, const char* zipPath) {
  int error = 0;
  zip_t* archive = zip_open(zipPath, ZIP_CREATE | ZIP_TRUNCATE, &error);
  if (archive == nullptr) {
    return false;
  }
  static const char kCda[] =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ClinicalDocument "
      "xmlns=\"urn:hl7-org:v3\"></ClinicalDocument>\n";
  zip_source_t* xml = zip_source_file(archive, xmlPath, 0, -1);
  zip_source_t* cda = zip_source_buffer(archive, kCda, sizeof kCda - 1, 0);
  const bool added = xml != nullptr && cda != nullptr &&
                     zip_file_add(archive, "apple_health_export/export.xml", xml, 0) >= 0 &&
                     zip_file_add(archive, "apple_health_export/export_cda.xml", cda, 0) >= 0;
  if (!added) {
    zip_discard(archive);
    return false;
  }
  return zip_close(archive) == 0;
}

}  // namespace velk::bench
