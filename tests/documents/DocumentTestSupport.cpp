#include "DocumentTestSupport.h"

#include <fstream>
#include <sstream>

#include "support/TempDir.h"

namespace velk::testing {

nlohmann::json readGolden(const std::string& name) {
  std::ifstream in(sourcePath("tests/documents/golden/" + name));
  std::stringstream text;
  text << in.rdbuf();
  return nlohmann::json::parse(text.str(), nullptr, /*allow_exceptions=*/false);
}

namespace {

void collectDifferences(const nlohmann::json& expected, const nlohmann::json& actual,
                        const std::string& path, std::vector<std::string>& out) {
  const std::string at = path.empty() ? "(root)" : path;
  if (expected.is_object() && actual.is_object()) {
    for (const auto& [key, value] : expected.items()) {
      const std::string child = path.empty() ? key : path + "." + key;
      if (!actual.contains(key)) {
        out.push_back(child + ": missing key");
      } else {
        collectDifferences(value, actual.at(key), child, out);
      }
    }
    for (const auto& [key, value] : actual.items()) {
      if (!expected.contains(key)) {
        out.push_back((path.empty() ? key : path + "." + key) + ": unexpected key");
      }
    }
  } else if (expected.is_array() && actual.is_array() && expected.size() == actual.size()) {
    for (std::size_t index = 0; index < expected.size(); ++index) {
      collectDifferences(expected[index], actual[index], path + "[" + std::to_string(index) + "]",
                         out);
    }
  } else if (expected != actual) {
    out.push_back(at + ": expected " + expected.dump() + ", found " + actual.dump());
  }
}

}  // namespace

std::vector<std::string> jsonDifferences(const nlohmann::json& expected,
                                         const nlohmann::json& actual) {
  std::vector<std::string> out;
  collectDifferences(expected, actual, "", out);
  return out;
}

}  // namespace velk::testing
