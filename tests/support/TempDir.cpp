#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace velk::testing {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "velk-test-XXXXXX").string();
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) == nullptr) {
    throw std::runtime_error("cannot make a temporary folder");
  }
  path_ = buffer.data();
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::filesystem::path TempDir::write(const std::string& name, const std::string& text) const {
  const auto target = path_ / name;
  std::ofstream out(target, std::ios::binary);
  out << text;
  return target;
}

std::filesystem::path sourcePath(const std::string& relative) {
  const char* root = std::getenv("VELK_SOURCE_DIR");
  return std::filesystem::path(root != nullptr ? root : ".") / relative;
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

void executeSql(const std::filesystem::path& path, const std::string& sql) {
  sqlite3* connection = nullptr;
  EXPECT_EQ(sqlite3_open(path.c_str(), &connection), SQLITE_OK) << path;
  EXPECT_EQ(sqlite3_exec(connection, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sql;
  sqlite3_close(connection);
}

}  // namespace velk::testing
