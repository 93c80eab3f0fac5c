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

#include "velk/platform/Result.h"

namespace velk::ingest {

class ExportSource {
 public:
  virtual ~ExportSource() = default;

  /// Opens `path`: a zip archive (recognised by its signature, not its name) or an XML file.
  /// Fails when the file cannot be opened or an archive holds no export.
  static Result<std::unique_ptr<ExportSource>> open(const std::filesystem::path& path);

  /// Reads up to `size` bytes into `buffer`; 0 at the end of the XML.
  virtual Result<std::size_t> read(char* buffer, std::size_t size) = 0;

  /// The file, and for an archive the entry, that is read ("export.zip:apple_health_export/
  /// export.xml").
  virtual const std::string& description() const = 0;

  /// The size of the XML in bytes where known beforehand, else 0.
  virtual std::uint64_t size() const = 0;
};

}  // namespace velk::ingest
