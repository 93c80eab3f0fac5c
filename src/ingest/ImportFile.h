// The file an import writes before it becomes the database.
//
// Each import writes a file of its own beside the target, "<target>.importing-<random>", so that
// imports of one database at the same time never write into each other's file. The file is
// locked (flock) for as long as its import runs: a file beside the target that nobody holds
// locked is the leftover of an import that was killed, and the next import of that target
// removes it. The file takes the target's place in one rename, so a reader of the target sees
// either the old database or the whole new one, never a part; two imports that finish together
// leave the database of the one that renamed last.
#pragma once

#include <filesystem>

#include "velk/Result.h"

namespace velk::ingest {

class ImportFile {
 public:
  /// Removes the leftovers of killed imports of `target`, then makes a new, empty, locked file
  /// beside it. Fails with a database error naming the folder when it cannot be written.
  static Result<ImportFile> create(const std::filesystem::path& target);

  ImportFile(ImportFile&& other) noexcept;
  ImportFile& operator=(ImportFile&&) = delete;
  ImportFile(const ImportFile&) = delete;
  ImportFile& operator=(const ImportFile&) = delete;
  /// Removes the file unless it was installed, and releases the lock.
  ~ImportFile();

  const std::filesystem::path& path() const { return path_; }

  /// Flushes the finished file to the disk and renames it over the target. On failure the
  /// target is as it was.
  Status install();

 private:
  ImportFile(std::filesystem::path target, std::filesystem::path path, int descriptor)
      : target_(std::move(target)), path_(std::move(path)), descriptor_(descriptor) {}

  std::filesystem::path target_;
  std::filesystem::path path_;
  int descriptor_ = -1;
  bool installed_ = false;
};

}  // namespace velk::ingest
