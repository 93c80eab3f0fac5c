// A fresh temporary folder for one test, removed with everything in it when the test ends, and
// the files tests read and change.
#pragma once

#include <filesystem>
#include <string>

namespace velk::testing {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path file(const std::string& name) const { return path_ / name; }

  /// Writes `text` to a file in the folder and returns its path.
  std::filesystem::path write(const std::string& name, const std::string& text) const;

 private:
  std::filesystem::path path_;
};

/// The path of a file below the source tree (tests read fixtures through this).
std::filesystem::path sourcePath(const std::string& relative);

/// The whole of a file (through rdbuf, which the optimised sanitizer builds accept).
std::string readFile(const std::filesystem::path& path);

/// Runs `sql` on the SQLite file at `path`, as a hand or another program changing it would; a
/// statement that fails fails the test.
void executeSql(const std::filesystem::path& path, const std::string& sql);

}  // namespace velk::testing
