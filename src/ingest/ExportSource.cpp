#include "ingest/ExportSource.h"

#include <zip.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <vector>

#include "ExportPrologue.h"
#include "ingest/ExportErrors.h"

namespace velk::ingest {

namespace {

using SourceResult = Result<std::unique_ptr<ExportSource>>;

// How far into an archive entry to look for its root element before passing it over; the
// export's DTD is about 10 KiB.
constexpr std::size_t kRootSearchLimit = 4u << 20;

class FileSource final : public ExportSource {
 public:
  FileSource(std::FILE* file, std::string description, std::uint64_t size)
      : file_(file), description_(std::move(description)), size_(size) {}
  ~FileSource() override { std::fclose(file_); }
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  Result<std::size_t> read(char* buffer, std::size_t size) override {
    const auto got = std::fread(buffer, 1, size, file_);
    if (got < size && std::ferror(file_) != 0) {
      return Result<std::size_t>::failure(
          exportError(ExportErrorCode::readFailed,
                      "reading " + description_ + " failed: " + std::strerror(errno)));
    }
    return Result<std::size_t>::success(got);
  }
  const std::string& description() const override { return description_; }
  std::uint64_t size() const override { return size_; }

 private:
  std::FILE* file_;
  std::string description_;
  std::uint64_t size_;
};

struct ArchiveCloser {
  void operator()(zip_t* archive) const { zip_discard(archive); }
};
using ArchivePointer = std::unique_ptr<zip_t, ArchiveCloser>;

struct EntryCloser {
  void operator()(zip_file_t* entry) const { zip_fclose(entry); }
};
using EntryPointer = std::unique_ptr<zip_file_t, EntryCloser>;

std::string tooLargeMessage(const std::string& description, std::uint64_t allowed) {
  return description + " unpacks to more than " + std::to_string(allowed) +
         " bytes, the most that an export of its compressed size may (a damaged archive or a "
         "zip bomb)";
}

class ZipEntrySource final : public ExportSource {
 public:
  ZipEntrySource(ArchivePointer archive, EntryPointer entry, std::string description,
                 std::uint64_t size, std::uint64_t allowed)
      : archive_(std::move(archive)),
        entry_(std::move(entry)),
        description_(std::move(description)),
        size_(size),
        allowed_(allowed) {}

  Result<std::size_t> read(char* buffer, std::size_t size) override {
    // One byte beyond what is allowed is enough to know that the archive is too large.
    const auto wanted = static_cast<zip_uint64_t>(
        std::min<std::uint64_t>(size, allowed_ - std::min(allowed_, unpacked_) + 1));
    const auto got = zip_fread(entry_.get(), buffer, wanted);
    if (got < 0) {
      return Result<std::size_t>::failure(exportError(
          ExportErrorCode::readFailed,
          "decompressing " + description_ + " failed: " + zip_file_strerror(entry_.get())));
    }
    unpacked_ += static_cast<std::uint64_t>(got);
    if (unpacked_ > allowed_) {
      return Result<std::size_t>::failure(
          exportError(ExportErrorCode::archiveTooLarge, tooLargeMessage(description_, allowed_)));
    }
    return Result<std::size_t>::success(static_cast<std::size_t>(got));
  }
  const std::string& description() const override { return description_; }
  std::uint64_t size() const override { return size_; }

 private:
  ArchivePointer archive_;  // outlives entry_: members are destroyed in reverse order
  EntryPointer entry_;
  std::string description_;
  std::uint64_t size_;
  std::uint64_t allowed_;
  std::uint64_t unpacked_ = 0;
};

bool endsWithXml(std::string_view name) {
  if (name.size() < 4) {
    return false;
  }
  std::string suffix(name.substr(name.size() - 4));
  std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return suffix == ".xml";
}

// True when the entry's first element is HealthData. `budget` is what may still be unpacked
// while looking, for this and the remaining entries; what this entry takes is subtracted.
bool entryIsExport(zip_t* archive, zip_uint64_t index, std::uint64_t& budget) {
  EntryPointer entry(zip_fopen_index(archive, index, 0));
  if (!entry) {
    return false;
  }
  std::string head;
  std::vector<char> buffer(64u << 10);
  while (head.size() < kRootSearchLimit && budget > 0) {
    const auto wanted = std::min<std::uint64_t>(buffer.size(), budget);
    const auto got = zip_fread(entry.get(), buffer.data(), wanted);
    if (got <= 0) {
      break;
    }
    budget -= static_cast<std::uint64_t>(got);
    head.append(buffer.data(), static_cast<std::size_t>(got));
    const auto scan = scanPrologue(head);
    if (scan.status != PrologueScan::Status::needMore) {
      return scan.status == PrologueScan::Status::found && scan.rootName == "HealthData";
    }
  }
  return false;
}

// What an archive holds that may be an export: its XML entries whose root element is HealthData
// (looked for until a second shows, since one of two cannot be chosen), and the first XML entry
// that is encrypted.
struct ArchiveContents {
  std::vector<zip_uint64_t> exports;
  std::string encrypted;
};

ArchiveContents lookForExports(zip_t* archive, std::uint64_t probeBudget) {
  ArchiveContents found;
  const auto entries = zip_get_num_entries(archive, 0);
  for (zip_int64_t i = 0; i < entries && probeBudget > 0 && found.exports.size() < 2; ++i) {
    const auto index = static_cast<zip_uint64_t>(i);
    zip_stat_t stat;
    if (zip_stat_index(archive, index, 0, &stat) != 0 || (stat.valid & ZIP_STAT_NAME) == 0 ||
        !endsWithXml(stat.name)) {
      continue;
    }
    if ((stat.valid & ZIP_STAT_ENCRYPTION_METHOD) != 0 && stat.encryption_method != ZIP_EM_NONE) {
      found.encrypted = found.encrypted.empty() ? stat.name : found.encrypted;
    } else if (entryIsExport(archive, index, probeBudget)) {
      found.exports.push_back(index);
    }
  }
  return found;
}

SourceResult openArchive(const std::filesystem::path& path, const ArchiveLimits& limits) {
  int code = 0;
  ArchivePointer archive(zip_open(path.c_str(), ZIP_RDONLY, &code));
  if (!archive) {
    zip_error_t error;
    zip_error_init_with_code(&error, code);
    std::string message =
        "cannot open the archive " + path.string() + ": " + zip_error_strerror(&error);
    zip_error_fini(&error);
    return SourceResult::failure(exportError(ExportErrorCode::cannotOpen, message));
  }
  const ArchiveContents contents = lookForExports(archive.get(), limits.probeBudget);
  const auto nameOf = [&archive](zip_uint64_t index) {
    return std::string(zip_get_name(archive.get(), index, 0));
  };
  if (contents.exports.size() > 1) {
    return SourceResult::failure(
        exportError(ExportErrorCode::severalExportsInArchive,
                    "the archive " + path.string() + " holds more than one Apple Health export (" +
                        nameOf(contents.exports[0]) + ", " + nameOf(contents.exports[1]) +
                        "): unpack it and give the export.xml meant"));
  }
  if (contents.exports.size() == 1) {
    const zip_uint64_t index = contents.exports.front();
    zip_stat_t stat;
    zip_stat_index(archive.get(), index, 0, &stat);
    const std::uint64_t size = (stat.valid & ZIP_STAT_SIZE) != 0 ? stat.size : 0;
    const std::uint64_t compressed = (stat.valid & ZIP_STAT_COMP_SIZE) != 0 ? stat.comp_size : 0;
    const auto allowed = limits.allowedSize(compressed);
    std::string description = path.string() + ":" + nameOf(index);
    if (size > allowed) {
      return SourceResult::failure(
          exportError(ExportErrorCode::archiveTooLarge, tooLargeMessage(description, allowed)));
    }
    if (EntryPointer entry(zip_fopen_index(archive.get(), index, 0)); entry) {
      return SourceResult::success(std::make_unique<ZipEntrySource>(
          std::move(archive), std::move(entry), std::move(description), size, allowed));
    }
  } else if (!contents.encrypted.empty()) {
    return SourceResult::failure(exportError(
        ExportErrorCode::noExportInArchive,
        "the archive " + path.string() + " holds its XML encrypted (" + contents.encrypted +
            "): unpack it with its password and give the export.xml"));
  }
  return SourceResult::failure(exportError(
      ExportErrorCode::noExportInArchive,
      "the archive " + path.string() +
          " holds no Apple Health export (no XML file whose root element is HealthData)"));
}

}  // namespace

std::uint64_t ArchiveLimits::allowedSize(std::uint64_t compressedSize) const {
  const auto byRatio = compressedSize > ceiling / std::max<std::uint64_t>(maximumRatio, 1)
                           ? ceiling
                           : compressedSize * maximumRatio;
  return std::min(ceiling, std::max(alwaysAllowed, byRatio));
}

SourceResult ExportSource::open(const std::filesystem::path& path, const ArchiveLimits& limits) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) {
    return SourceResult::failure(exportError(
        ExportErrorCode::cannotOpen,
        "cannot open " + path.string() + ": it is a directory, not export.zip or export.xml"));
  }
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    return SourceResult::failure(exportError(
        ExportErrorCode::cannotOpen, "cannot open " + path.string() + ": " + std::strerror(errno)));
  }
  char signature[4] = {};
  const auto got = std::fread(signature, 1, sizeof signature, file);
  if (got == sizeof signature &&
      std::string_view(signature, 4) == std::string_view("PK\x03\x04", 4)) {
    std::fclose(file);
    return openArchive(path, limits);
  }
  std::rewind(file);
  const auto size = std::filesystem::file_size(path, ignored);
  return SourceResult::success(std::make_unique<FileSource>(
      file, path.string(), size == static_cast<std::uintmax_t>(-1) ? 0 : size));
}

}  // namespace velk::ingest
