// Exports and archives written to hurt the reader: entity bombs, entities that name files and
// URLs, huge values, deep nesting, endless whitespace, files cut anywhere, broken UTF-8, other
// encodings; archives cut short, unpacking to far more than they hold, lying about their sizes, or
// hiding the export behind many large entries. Each must end in a report with a warning or in an
// error, with bounded time and memory, and never run code or read anything the export names.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "ingest/ExportErrors.h"
#include "ingest/ExportReader.h"
#include "ingest/ExportTestSupport.h"
#include "support/TempDir.h"

namespace velk::ingest {
namespace {

using testing::CollectingSink;
using testing::exportHead;
using testing::exportWith;
using testing::namedRecord;
using testing::readFile;
using testing::stepRecord;
using testing::writeZip;

// A source that streams `head`, then `fillCount` copies of `fill`, then `tail`, without ever
// holding the filling in memory.
class GeneratedSource final : public ExportSource {
 public:
  GeneratedSource(std::string head, std::string fill, std::uint64_t fillCount, std::string tail)
      : head_(std::move(head)),
        fill_(std::move(fill)),
        tail_(std::move(tail)),
        pieces_(fillCount + 2) {}

  Result<std::size_t> read(char* buffer, std::size_t size) override {
    std::size_t written = 0;
    while (written < size && piece_ < pieces_) {
      const std::string& text = piece_ == 0 ? head_ : piece_ + 1 == pieces_ ? tail_ : fill_;
      const auto count = text.copy(buffer + written, size - written, offset_);
      written += count;
      offset_ += count;
      if (offset_ == text.size()) {
        ++piece_;
        offset_ = 0;
      }
    }
    return Result<std::size_t>::success(written);
  }
  const std::string& description() const override { return description_; }
  std::uint64_t size() const override { return 0; }

 private:
  std::string head_, fill_, tail_;
  std::uint64_t pieces_;
  std::uint64_t piece_ = 0;
  std::size_t offset_ = 0;
  std::string description_ = "generated.xml";
};

// The peak resident memory of this process in KiB, reset first by resetPeakMemory().
long peakMemoryKiB() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) {
      return std::stol(line.substr(6));
    }
  }
  return -1;
}
void resetPeakMemory() {
  std::ofstream("/proc/self/clear_refs") << "5";
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VELK_UNDER_ADDRESS_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define VELK_UNDER_ADDRESS_SANITIZER 1
#endif

// Checks a peak of memory in KiB, except under AddressSanitizer, which pads every allocation and
// keeps what was freed in quarantine (256 MiB), so that a peak there tells more of the tests run
// before than of the reader. The reads themselves run and are checked all the same.
void expectPeakBelow(long peakKiB, long limitKiB, const char* what) {
#ifndef VELK_UNDER_ADDRESS_SANITIZER
  EXPECT_LT(peakKiB, limitKiB) << what;
#else
  (void)peakKiB, (void)limitKiB, (void)what;
#endif
}

Result<ExportReport> readText(const std::string& text, CollectingSink& sink) {
  GeneratedSource source(text, "", 0, "");
  return ExportReader().read(source, sink);
}

// The values of the clean records (those from stepRecord) in the order they came.
std::vector<double> cleanValues(const CollectingSink& sink) {
  std::vector<double> clean;
  for (const auto& record : sink.records) {
    if (record.sourceName == "Anna's iPhone") {
      clean.push_back(record.value);
    }
  }
  return clean;
}

TEST(HostileExportTest, EntitiesAreNeverExpandedNorFetched) {
  testing::TempDir dir;
  const auto secret = dir.write("secret.txt", "TOP-SECRET-CONTENT");
  std::string subset = "<!DOCTYPE HealthData [\n<!ENTITY lol0 \"lol\">\n";
  for (int level = 1; level <= 9; ++level) {
    subset += "<!ENTITY lol" + std::to_string(level) + " \"" +
              testing::repeated("&lol" + std::to_string(level - 1) + ";", 10) + "\">\n";
  }
  subset += "<!ENTITY file SYSTEM \"file://" + secret.string() + "\">\n" +
            "<!ENTITY web SYSTEM \"http://127.0.0.1:9/velk-must-not-fetch\">\n" +
            "<!ENTITY % remote SYSTEM \"file://" + secret.string() + "\">\n%remote;\n]>\n";
  // Each named entity inside a record, and a clean record after each to show reading goes on.
  std::string text =
      testing::exportWith(namedRecord("&lol9;") + stepRecord(1) + namedRecord("&file;") +
                          stepRecord(2) + namedRecord("&web;") + stepRecord(3));
  text.insert(text.find('\n') + 1, subset);
  const auto path = dir.write("export.xml", text);

  CollectingSink sink;
  resetPeakMemory();
  const auto report = ExportReader().read(path, sink);
  ASSERT_TRUE(report.isSuccess()) << report.error();
  expectPeakBelow(peakMemoryKiB(), 512 * 1024, "an entity was expanded");
  // A reference to an undeclared entity is damage, or kept as the text it is.
  std::string seen;
  for (const auto& record : sink.records) {
    seen += record.sourceName + record.sourceBundleIdentifier + record.type;
    EXPECT_TRUE(record.sourceName == "Anna's iPhone" || record.sourceName.front() == '&')
        << record.sourceName;
  }
  EXPECT_EQ(seen.find("TOP-SECRET"), std::string::npos) << "an external entity was read";
  EXPECT_EQ(seen.find("lollol"), std::string::npos);
  EXPECT_EQ(report.value().count(ExportIssue::malformedXml) + sink.records.size(), 6u);
  EXPECT_EQ(cleanValues(sink), (std::vector<double>{1, 2, 3}));
}

TEST(HostileExportTest, HugeValuesAndDeepNestingEndInRecordsOrWarnings) {
  // A 48 MiB source name, then a record nested a million elements deep, each followed by a
  // clean record.
  const std::string huge(48u << 20, 'x');
  const std::string deep =
      " <Record type=\"HKQuantityTypeIdentifierStepCount\" unit=\"count\" "
      "startDate=\"2024-03-10 08:30:00 +0100\" endDate=\"2024-03-10 08:31:00 +0100\" value=\"9\">" +
      testing::repeated("<a>", 1000000) + testing::repeated("</a>", 1000000) + "</Record>\n";
  CollectingSink sink;
  const auto report = readText(
      exportHead() + namedRecord(huge) + stepRecord(1) + deep + stepRecord(2) + "</HealthData>\n",
      sink);
  ASSERT_TRUE(report.isSuccess()) << report.error();
  for (const auto& record : sink.records) {
    EXPECT_TRUE(record.sourceName.size() == huge.size() || record.sourceName.size() < 100);
  }
  EXPECT_EQ(cleanValues(sink), (std::vector<double>{1, 2}));
}

// Streams `blocks` MiB of `blank` between two records and returns the rise in memory in KiB.
long readAcrossBlanks(char blank, std::uint64_t blocks) {
  GeneratedSource source(exportHead() + stepRecord(1), std::string(1u << 20, blank), blocks,
                         stepRecord(2) + "</HealthData>\n");
  CollectingSink sink;
  resetPeakMemory();
  const auto report = ExportReader().read(source, sink);
  const auto peak = peakMemoryKiB();
  EXPECT_TRUE(report.isSuccess());
  EXPECT_EQ(sink.records.size(), 2u);
  return peak;
}

// Blanks cost no more than the bytes they are. On one line, two and six times what the reader
// holds of a body that it cannot cut, the memory it takes may not grow with them (the gigabyte
// runs in fuzz/hostile-whitespace); 48 MiB of empty lines may not take 256 MiB.
TEST(HostileExportTest, BlankLinesAndAnEndlessLineOfSpacesAreReadInBoundedMemory) {
  const auto shorter = readAcrossBlanks(' ', 128);
  expectPeakBelow(readAcrossBlanks(' ', 384), shorter + 64 * 1024, "grew with the blanks");
  expectPeakBelow(readAcrossBlanks('\n', 48), 256 * 1024, "more than the empty lines' size");
}

TEST(HostileExportTest, AFileCutAnywhereGivesWhatCameBeforeAndAWarning) {
  {
    // A record cut in its middle is lost with a warning; the ones before it are kept.
    CollectingSink sink;
    const auto report =
        readText(exportHead() + stepRecord(1) + stepRecord(2) + stepRecord(3).substr(0, 40), sink);
    ASSERT_TRUE(report.isSuccess());
    EXPECT_EQ(sink.values(), (std::vector<double>{1, 2}));
    EXPECT_EQ(report.value().count(ExportIssue::truncated), 1u);
    EXPECT_EQ(report.value().count(ExportIssue::malformedXml), 1u);
  }
  const std::string whole = testing::readFile(testing::realExport("curated-2021/sampleexport.xml"));
  ASSERT_GT(whole.size(), 10000u);
  CollectingSink complete;
  ASSERT_TRUE(readText(whole, complete).isSuccess());
  ASSERT_EQ(complete.records.size(), 5u);
  for (std::size_t cut = 0; cut + 20 < whole.size(); cut += 331) {
    SCOPED_TRACE("cut at byte " + std::to_string(cut));
    CollectingSink sink;
    const auto report = readText(whole.substr(0, cut), sink);
    if (report.isFailure()) {
      // Only a cut before the root element leaves no export at all.
      EXPECT_EQ(report.error().code(), static_cast<std::int64_t>(ExportErrorCode::notAnExport));
      EXPECT_TRUE(sink.records.empty());
      continue;
    }
    EXPECT_EQ(report.value().count(ExportIssue::truncated), 1u);
    EXPECT_LE(sink.records.size(), complete.records.size());
  }
}

TEST(HostileExportTest, InvalidUtf8NeverReachesARecord) {
  // A lone continuation byte, a cut-off sequence, an overlong slash, a surrogate and 0xFF, in
  // source names and in a type; a clean record after each.
  const std::vector<std::string> broken = {"\x80", "Anna\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xff"};
  std::string body;
  int value = 0;
  for (const auto& bytes : broken) {
    body += namedRecord("Watch " + bytes) + stepRecord(++value);
  }
  body +=
      " <Record type=\"HKQuantityTypeIdentifier\xffStepCount\" unit=\"count\" "
      "startDate=\"2024-03-10 08:30:00 +0100\" endDate=\"2024-03-10 08:31:00 +0100\" "
      "value=\"1\"/>\n" +
      stepRecord(++value);
  CollectingSink sink;
  const auto report = readText(exportHead() + body + "</HealthData>\n", sink);
  ASSERT_TRUE(report.isSuccess()) << report.error();
  for (const auto& record : sink.records) {
    // Dumping JSON checks UTF-8 strictly: overlong forms and surrogates throw too.
    EXPECT_NO_THROW((void)nlohmann::json({record.sourceName, record.type}).dump());
  }
  EXPECT_GE(report.value().count(ExportIssue::malformedXml), 1u);
  EXPECT_EQ(cleanValues(sink), (std::vector<double>{1, 2, 3, 4, 5, 6}));
}

// Exports in other encodings: UTF-16 (with its byte order mark, either order) is refused with a
// message that names it and says how to convert; a file declaring Latin-1 gets one warning that
// names its encoding, loses the records whose texts are not UTF-8, each reported, and keeps the
// others.
TEST(HostileExportTest, OtherEncodingsAreRefusedOrReportedRecordByRecord) {
  const std::string text = exportHead() + stepRecord(1) + "</HealthData>\n";
  for (const bool bigEndian : {false, true}) {
    std::string wide = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
    for (const char c : text) {
      wide += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
    }
    CollectingSink sink;
    const auto report = readText(wide, sink);
    ASSERT_TRUE(report.isFailure());
    EXPECT_EQ(report.error().code(), static_cast<std::int64_t>(ExportErrorCode::notAnExport));
    EXPECT_NE(report.error().message().find("is UTF-16 text"), std::string::npos)
        << report.error().message();
  }
  CollectingSink sink;
  const auto latin1 =
      readText("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<HealthData locale=\"fr_FR\">\n" +
                   namedRecord("iPhone de Ren\xe9", "3") + stepRecord(4) + "</HealthData>\n",
               sink);
  ASSERT_TRUE(latin1.isSuccess()) << latin1.error();
  EXPECT_EQ(sink.values(), std::vector<double>{4});
  EXPECT_EQ(latin1.value().entry(ExportIssue::malformedXml).details.at(0).text, "not UTF-8");
  EXPECT_EQ(latin1.value().entry(ExportIssue::otherEncoding).details.at(0).text, "ISO-8859-1");
  EXPECT_EQ(latin1.value().entry(ExportIssue::otherEncoding).firstLines,
            std::vector<std::uint64_t>{1});
}

std::int64_t code(ExportErrorCode value) {
  return static_cast<std::int64_t>(value);
}

std::string exportWithBlanks(std::size_t blanks) {
  return exportHead() + stepRecord(1) + std::string(blanks, ' ') + "\n" + stepRecord(2) +
         "</HealthData>\n";
}

TEST(HostileArchiveTest, AnArchiveCutAnywhereFailsWithAnErrorOrReadsWithAWarning) {
  testing::TempDir dir;
  const auto whole = dir.file("whole.zip");
  ASSERT_TRUE(writeZip(whole, {{"apple_health_export/export.xml", testing::exportOf(2000)}}));
  const auto bytes = readFile(whole);
  int refused = 0;
  for (std::size_t cut = 4; cut < bytes.size(); cut += bytes.size() / 61 + 1) {
    SCOPED_TRACE("cut at byte " + std::to_string(cut));
    const auto path = dir.write("cut.zip", bytes.substr(0, cut));
    CollectingSink sink;
    const auto report = ExportReader().read(path, sink);
    if (report.isFailure()) {
      ++refused;
      EXPECT_NE(report.error().message().find("cut.zip"), std::string::npos);
    } else {
      EXPECT_TRUE(report.value().hasWarnings());
    }
  }
  // Without its central directory at the end, no cut archive opens at all.
  EXPECT_GT(refused, 55);
}

// Rewrites the uncompressed size that the archive's only entry declares, in its local header
// and its central directory entry, to `declared`.
void lieAboutSize(std::string& bytes, std::uint32_t declared) {
  const auto patch = [&](std::size_t at) {
    for (int i = 0; i < 4; ++i) {
      bytes[at + static_cast<std::size_t>(i)] = static_cast<char>((declared >> (8 * i)) & 0xff);
    }
  };
  ASSERT_EQ(bytes.compare(0, 4, "PK\x03\x04"), 0);
  patch(22);
  const auto central = bytes.find("PK\x01\x02");
  ASSERT_NE(central, std::string::npos);
  patch(central + 24);
}

// An entry that unpacks to far more than it holds is refused at open when its headers say so, and
// stopped at the limit while it is read when they understate it.
TEST(HostileArchiveTest, AZipBombIsRefusedAndAnArchiveThatUnderstatesItsSizeStopsAtTheLimit) {
  testing::TempDir dir;
  // 64 MiB of blanks pack into about 64 KiB: a ratio of about 1000 to 1.
  const auto bomb = dir.file("bomb.zip");
  ASSERT_TRUE(writeZip(bomb, {{"apple_health_export/export.xml", exportWithBlanks(64u << 20)}}));
  ArchiveLimits limits;
  limits.alwaysAllowed = 1u << 20;
  const auto refused = ExportSource::open(bomb, limits);
  ASSERT_TRUE(refused.isFailure());
  EXPECT_EQ(refused.error().code(), code(ExportErrorCode::archiveTooLarge));
  EXPECT_NE(refused.error().message().find("zip bomb"), std::string::npos);
  EXPECT_NE(refused.error().message().find("bomb.zip:apple_health_export/export.xml"),
            std::string::npos);

  // The same archive within the limits reads completely.
  ArchiveLimits generous = limits;
  generous.maximumRatio = 2000;
  auto allowed = ExportSource::open(bomb, generous);
  ASSERT_TRUE(allowed.isSuccess()) << allowed.error();
  CollectingSink sink;
  ASSERT_TRUE(ExportReader().read(*allowed.value(), sink).isSuccess());
  EXPECT_EQ(sink.records.size(), 2u);

  const auto liar = dir.file("liar.zip");
  ASSERT_TRUE(writeZip(liar, {{"export.xml", exportWithBlanks(8u << 20)}}));
  auto bytes = readFile(liar);
  lieAboutSize(bytes, 1000);
  dir.write("liar.zip", bytes);
  auto source = ExportSource::open(liar, limits);
  if (source.isFailure()) {
    EXPECT_FALSE(source.error().message().empty());
    return;
  }
  const auto report = ExportReader().read(*source.value(), sink);
  ASSERT_TRUE(report.isFailure()) << "an archive that lies about its size read as whole";
  EXPECT_TRUE(report.error().code() == code(ExportErrorCode::readFailed));
  EXPECT_TRUE(report.error().message().find("zip bomb") != std::string::npos ||
              report.error().message().find("liar.zip") != std::string::npos)
      << report.error().message();
}

// Two exports in one archive are refused, naming both: which one is meant is unknown. A name that
// climbs out of the archive's folder is only a name: entries are read, never written out. An
// encrypted export is refused with a message that says so, not as an archive without an export.
TEST(HostileArchiveTest, TwoExportsClimbingNamesAndEncryptedEntriesAreReadOrRefusedClearly) {
  testing::TempDir dir;
  const auto two = dir.file("two.zip");
  ASSERT_TRUE(writeZip(two, {{"apple_health_export/export.xml", exportWith(stepRecord(100))},
                             {"other/export.xml", exportWith(stepRecord(999))}}));
  const auto ambiguous = ExportSource::open(two);
  ASSERT_TRUE(ambiguous.isFailure());
  EXPECT_EQ(ambiguous.error().code(), code(ExportErrorCode::severalExportsInArchive));
  EXPECT_NE(ambiguous.error().message().find(
                "(apple_health_export/export.xml, other/export.xml): unpack it"),
            std::string::npos)
      << ambiguous.error().message();
  const auto climbing = dir.file("climbing.zip");
  ASSERT_TRUE(
      writeZip(climbing, {{"../../apple_health_export/export.xml", exportWith(stepRecord(7))}}));
  CollectingSink sink;
  ASSERT_TRUE(ExportReader().read(climbing, sink).isSuccess());
  EXPECT_EQ(sink.values(), std::vector<double>{7});

  const auto encrypted = dir.file("encrypted.zip");
  const std::string text = exportWith(stepRecord(5));
  int error = 0;
  zip_t* archive = zip_open(encrypted.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  ASSERT_NE(archive, nullptr);
  const auto index = zip_file_add(archive, "apple_health_export/export.xml",
                                  zip_source_buffer(archive, text.data(), text.size(), 0), 0);
  ASSERT_GE(index, 0);
  if (zip_file_set_encryption(archive, static_cast<zip_uint64_t>(index), ZIP_EM_AES_256,
                              "secret") != 0) {
    zip_discard(archive);
    GTEST_SKIP() << "this libzip cannot encrypt";
  }
  ASSERT_EQ(zip_close(archive), 0);
  const auto refused = ExportSource::open(encrypted);
  ASSERT_TRUE(refused.isFailure());
  EXPECT_EQ(refused.error().code(), code(ExportErrorCode::noExportInArchive));
  EXPECT_NE(refused.error().message().find("encrypted (apple_health_export/export.xml)"),
            std::string::npos)
      << refused.error().message();
}

TEST(HostileArchiveTest, LookingForTheExportUnpacksNoMoreThanItsBudget) {
  testing::TempDir dir;
  // Six decoy XML entries of 4 MiB of blanks each before the export: looking into every one
  // unpacks 24 MiB. With a budget of 8 MiB the search stops, and says the export is missing.
  std::vector<std::pair<std::string, std::string>> entries;
  const std::string decoy = "<?xml version=\"1.0\"?>" + std::string(4u << 20, ' ');
  for (int i = 0; i < 6; ++i) {
    entries.emplace_back("decoy" + std::to_string(i) + ".xml", decoy);
  }
  entries.emplace_back("export.xml", exportWithBlanks(0));
  const auto path = dir.file("decoys.zip");
  ASSERT_TRUE(writeZip(path, entries));

  ArchiveLimits limits;
  limits.probeBudget = 8u << 20;
  const auto refused = ExportSource::open(path, limits);
  ASSERT_TRUE(refused.isFailure());
  EXPECT_EQ(refused.error().code(), code(ExportErrorCode::noExportInArchive));
  EXPECT_TRUE(ExportSource::open(path).isSuccess());
}

}  // namespace
}  // namespace velk::ingest
