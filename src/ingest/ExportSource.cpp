#include "velk/ingest/ExportSource.h"

#include <zip.h>

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <vector>

#include "ExportPrologue.h"
#include "velk/ingest/ExportErrors.h"

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
          exportError(ExportErrorCode::readFailed, "reading " + description_ + " failed"));
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

class ZipEntrySource final : public ExportSource {
 public:
  ZipEntrySource(ArchivePointer archive, EntryPointer entry, std::string description,
                 std::uint64_t size)
      : archive_(std::move(archive)),
        entry_(std::move(entry)),
        description_(std::move(description)),
        size_(size) {}

  Result<std::size_t> read(char* buffer, std::size_t size) override {
    const auto got = zip_fread(entry_.get(), buffer, size);
    if (got < 0) {
      return Result<std::size_t>::failure(exportError(
          ExportErrorCode::readFailed,
          "decompressing " + description_ + " failed: " + zip_file_strerror(entry_.get())));
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

// True when the entry's first element is HealthData.
bool entryIsExport(zip_t* archive, zip_uint64_t index) {
  EntryPointer entry(zip_fopen_index(archive, index, 0));
  if (!entry) {
    return false;
  }
  std::string head;
  std::vector<char> buffer(64u << 10);
  while (head.size() < kRootSearchLimit) {
    const auto got = zip_fread(entry.get(), buffer.data(), buffer.size());
    if (got <= 0) {
      break;
    }
    head.append(buffer.data(), static_cast<std::size_t>(got));
    const auto scan = scanPrologue(head);
    if (scan.status != PrologueScan::Status::needMore) {
      return scan.status == PrologueScan::Status::found && scan.rootName == "HealthData";
    }
  }
  return false;
}

SourceResult openArchive(const std::filesystem::path& path) {
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
  const auto entries = zip_get_num_entries(archive.get(), 0);
  for (zip_int64_t i = 0; i < entries; ++i) {
    const auto index = static_cast<zip_uint64_t>(i);
    zip_stat_t stat;
    if (zip_stat_index(archive.get(), index, 0, &stat) != 0 || (stat.valid & ZIP_STAT_NAME) == 0 ||
        !endsWithXml(stat.name) || !entryIsExport(archive.get(), index)) {
      continue;
    }
    EntryPointer entry(zip_fopen_index(archive.get(), index, 0));
    if (!entry) {
      break;
    }
    const std::uint64_t size = (stat.valid & ZIP_STAT_SIZE) != 0 ? stat.size : 0;
    std::string description = path.string() + ":" + stat.name;
    return SourceResult::success(std::make_unique<ZipEntrySource>(
        std::move(archive), std::move(entry), std::move(description), size));
  }
  return SourceResult::failure(exportError(
      ExportErrorCode::noExportInArchive,
      "the archive " + path.string() +
          " holds no Apple Health export (no XML file whose root element is HealthData)"));
}

}  // namespace

SourceResult ExportSource::open(const std::filesystem::path& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    return SourceResult::failure(
        exportError(ExportErrorCode::cannotOpen, "cannot open " + path.string()));
  }
  char signature[4] = {};
  const auto got = std::fread(signature, 1, sizeof signature, file);
  if (got == sizeof signature &&
      std::string_view(signature, 4) == std::string_view("PK\x03\x04", 4)) {
    std::fclose(file);
    return openArchive(path);
  }
  std::rewind(file);
  std::error_code ignored;
  const auto size = std::filesystem::file_size(path, ignored);
  return SourceResult::success(std::make_unique<FileSource>(
      file, path.string(), size == static_cast<std::uintmax_t>(-1) ? 0 : size));
}

}  // namespace velk::ingest
