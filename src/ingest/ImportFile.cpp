#include "ImportFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <random>
#include <string>
#include <system_error>
#include <utility>

#include "ingest/ImportedHealthDatabase.h"

namespace velk::ingest {
namespace {

constexpr std::string_view kInfix = ".importing";

// Whether `descriptor` is still the file at `path` (a cleaner may have removed it meanwhile).
bool isFileAt(int descriptor, const std::filesystem::path& path) {
  struct stat opened {};
  struct stat named {};
  return ::fstat(descriptor, &opened) == 0 && ::stat(path.c_str(), &named) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

// Removes the files of imports of `target` that nobody holds locked any more: those of killed
// imports (and the single "<target>.importing" of earlier versions, which never locked).
void removeLeftovers(const std::filesystem::path& target) {
  const std::filesystem::path folder =
      target.has_parent_path() ? target.parent_path() : std::filesystem::path(".");
  const std::string prefix = target.filename().string() + std::string(kInfix);
  std::error_code failed;
  for (std::filesystem::directory_iterator it(folder, failed), end; !failed && it != end;
       it.increment(failed)) {
    const std::string name = it->path().filename().string();
    if (name != prefix && name.rfind(prefix + "-", 0) != 0) {
      continue;
    }
    const int descriptor = ::open(it->path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (descriptor < 0) {
      continue;
    }
    if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0 && isFileAt(descriptor, it->path())) {
      ::unlink(it->path().c_str());
    }
    ::close(descriptor);
  }
}

std::string randomSuffix() {
  static thread_local std::mt19937_64 generator{std::random_device{}() ^
                                                (std::uint64_t(::getpid()) << 32)};
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string suffix(12, '0');
  auto bits = generator();
  for (char& digit : suffix) {
    digit = kDigits[bits & 15];
    bits >>= 4;
  }
  return suffix;
}

Error cannotWrite(const std::filesystem::path& target, int error) {
  return databaseError(DatabaseErrorCode::cannotOpen,
                       target.string() +
                           ": cannot write the new database beside it: " + std::strerror(error) +
                           " (check that its folder exists and that you may write in it)");
}

}  // namespace

Result<ImportFile> ImportFile::create(const std::filesystem::path& target) {
  removeLeftovers(target);
  for (int attempt = 0; attempt < 16; ++attempt) {
    std::filesystem::path path = target;
    path += std::string(kInfix) + "-" + randomSuffix();
    const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor < 0) {
      if (errno == EEXIST) {
        continue;
      }
      return Result<ImportFile>::failure(cannotWrite(target, errno));
    }
    // Another import clearing leftovers may have taken the file between its creation and the
    // lock; once locked and still in place, it is ours alone.
    if (::flock(descriptor, LOCK_EX) == 0 && isFileAt(descriptor, path)) {
      return Result<ImportFile>::success(ImportFile(target, std::move(path), descriptor));
    }
    ::close(descriptor);
  }
  return Result<ImportFile>::failure(cannotWrite(target, EEXIST));
}

ImportFile::ImportFile(ImportFile&& other) noexcept
    : target_(std::move(other.target_)),
      path_(std::move(other.path_)),
      descriptor_(std::exchange(other.descriptor_, -1)),
      installed_(std::exchange(other.installed_, true)) {}

ImportFile::~ImportFile() {
  if (descriptor_ < 0) {
    return;
  }
  if (!installed_) {
    ::unlink(path_.c_str());
  }
  ::close(descriptor_);
}

Status ImportFile::install() {
  // Flushed before the rename: a crash right after it must not leave a database whose pages
  // never reached the disk.
  if (::fsync(descriptor_) != 0) {
    return Status::failure(databaseError(
        DatabaseErrorCode::cannotReplace,
        target_.string() + ": cannot flush the new database to disk: " + std::strerror(errno) +
            "; the old database is kept"));
  }
  std::error_code renamed;
  std::filesystem::rename(path_, target_, renamed);
  if (renamed) {
    return Status::failure(databaseError(
        DatabaseErrorCode::cannotReplace,
        target_.string() + ": cannot replace: " + renamed.message() + "; the old one is kept"));
  }
  installed_ = true;
  return Status::success();
}

}  // namespace velk::ingest
