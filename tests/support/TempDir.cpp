#include "support/TempDir.h"

#include <stdlib.h>

#include <cstdlib>
#include <fstream>
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

}  // namespace velk::testing
