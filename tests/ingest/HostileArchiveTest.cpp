// Export archives written to hurt the reader: cut short, unpacking to far more than they hold,
// lying about their sizes, or hiding the export behind many large entries.
#include <gtest/gtest.h>

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
using testing::readFile;
using testing::stepRecord;
using testing::writeZip;

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
  const auto valuesOf = [](const std::filesystem::path& path) {
    CollectingSink sink;
    const auto report = ExportReader().read(path, sink);
    EXPECT_TRUE(report.isSuccess()) << report.error().message();
    return sink.values();
  };
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
  EXPECT_EQ(valuesOf(climbing), std::vector<double>{7});

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
