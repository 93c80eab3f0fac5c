// The bytes of an export's XML, read as a stream from a bare XML file or from inside an
// export.zip. In an archive the export is the XML entry whose root element is HealthData,
// whatever it is called ("export.xml", "Export.xml", "导出.xml", ...) and in whichever folder;
// export_cda.xml and the other files are passed over.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "velk/Result.h"

namespace velk::ingest {

/// How far an archive may unpack. A zip whose export unpacks to far more than its compressed size
/// is a "zip bomb": real exports compress about 20 to 1, so an export may unpack to `maximumRatio`
/// times its compressed size, but always to `alwaysAllowed` bytes and never beyond `ceiling`.
/// The size the archive declares is checked when it is opened, and the bytes actually unpacked
/// while it is read (an archive may lie about its sizes); either fails with archiveTooLarge.
/// Looking for the export among the archive's XML entries unpacks at most `probeBudget` bytes.
struct ArchiveLimits {
  std::uint64_t maximumRatio = 200;
  std::uint64_t alwaysAllowed = std::uint64_t{256} << 20;  // 256 MiB
  std::uint64_t ceiling = std::uint64_t{64} << 30;         // 64 GiB
  std::uint64_t probeBudget = std::uint64_t{64} << 20;     // 64 MiB

  /// The most that an entry of `compressedSize` bytes may unpack to.
  std::uint64_t allowedSize(std::uint64_t compressedSize) const;
};

class ExportSource {
 public:
  virtual ~ExportSource() = default;

  /// Opens `path`: a zip archive (recognised by its signature, not its name) or an XML file.
  /// Fails when the file cannot be opened or an archive holds no export.
  static Result<std::unique_ptr<ExportSource>> open(const std::filesystem::path& path,
                                                    const ArchiveLimits& limits = {});

  /// Reads up to `size` bytes into `buffer`; 0 at the end of the XML.
  virtual Result<std::size_t> read(char* buffer, std::size_t size) = 0;

  /// The file, and for an archive the entry, that is read ("export.zip:apple_health_export/
  /// export.xml").
  virtual const std::string& description() const = 0;

  /// The size of the XML in bytes where known beforehand, else 0.
  virtual std::uint64_t size() const = 0;
};

}  // namespace velk::ingest
