#include "velk/SourceIdentifierRule.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "ingest/ExportErrors.h"

namespace velk::ingest {

namespace {

bool isAsciiLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isAsciiDigit(char c) {
  return c >= '0' && c <= '9';
}

// The names that the Health app has on the phone in its major languages.
constexpr std::array<std::string_view, 7> kHealthAppNames = {
    "Health", "Santé", "Salud", "Salute", "Saúde", "ヘルスケア", "健康"};

constexpr std::array<std::string_view, 4> kDeviceWords = {"iPhone", "Apple Watch", "iPad", "iPod"};
constexpr std::array<std::string_view, 4> kAppleModels = {"iPhone", "Watch", "iPad", "iPod"};

// Device names often hold a no-break space ("Apple\u00a0Watch"); compare with plain spaces.
std::string withPlainSpaces(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\xC2' && i + 1 < text.size() && text[i + 1] == '\xA0') {
      out.push_back(' ');
      ++i;
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

bool containsWord(std::string_view text, std::string_view word) {
  for (auto at = text.find(word); at != std::string_view::npos; at = text.find(word, at + 1)) {
    const bool startsWord = at == 0 || !isAsciiLetter(text[at - 1]);
    const auto after = at + word.size();
    const bool endsWord = after == text.size() || !isAsciiLetter(text[after]);
    if (startsWord && endsWord) {
      return true;
    }
  }
  return false;
}

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

// One field of the device description "<<HKDevice: 0x..>, name:Apple Watch, manufacturer:Apple
// Inc., model:Watch, hardware:Watch5,3, software:6.1.3>": the text after ", key:" up to the
// next ", " or ">". Hardware values hold commas without a space ("Watch5,3"), so ", " is safe.
std::string_view deviceField(std::string_view device, std::string_view key) {
  std::string marker = ", ";
  marker += key;
  marker += ':';
  const auto at = device.find(marker);
  if (at == std::string_view::npos) {
    return {};
  }
  auto value = device.substr(at + marker.size());
  const auto end = std::min(value.find(", "), value.find('>'));
  return value.substr(0, end);
}

std::string_view majorVersion(std::string_view version) {
  return version.substr(0, version.find('.'));
}

bool isAppleDeviceSource(std::string_view version, std::string_view device) {
  const auto manufacturer = deviceField(device, "manufacturer");
  if (manufacturer != "Apple" && !startsWith(manufacturer, "Apple ")) {
    return false;
  }
  const auto model = deviceField(device, "model");
  bool appleModel = false;
  for (const auto candidate : kAppleModels) {
    appleModel = appleModel || startsWith(model, candidate);
  }
  const auto software = deviceField(device, "software");
  return appleModel && !version.empty() && !software.empty() &&
         majorVersion(version) == majorVersion(software);
}

std::uint32_t fnv1a(std::string_view bytes) {
  std::uint32_t hash = 2166136261u;
  for (const char c : bytes) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 16777619u;
  }
  return hash;
}

}  // namespace

SourceIdentifierRule::SourceIdentifierRule(
    std::map<std::string, std::string, std::less<>> overrides)
    : overrides_(std::move(overrides)) {}

Result<SourceIdentifierRule> SourceIdentifierRule::fromMappingFile(
    const std::filesystem::path& path) {
  using R = Result<SourceIdentifierRule>;
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    return R::failure(exportError(
        ExportErrorCode::cannotOpen,
        "cannot open the source mapping file " + path.string() + ": " + std::strerror(errno)));
  }
  const auto json = nlohmann::json::parse(in, nullptr, /*allow_exceptions=*/false);
  if (!json.is_object()) {
    return R::failure(exportError(ExportErrorCode::invalidSourceMapping,
                                  "the source mapping file " + path.string() +
                                      " is not a JSON object of source names to identifiers"));
  }
  std::map<std::string, std::string, std::less<>> overrides;
  for (const auto& [name, identifier] : json.items()) {
    if (!identifier.is_string()) {
      return R::failure(exportError(ExportErrorCode::invalidSourceMapping,
                                    "the source mapping file " + path.string() + " maps \"" + name +
                                        "\" to something not a string"));
    }
    overrides.emplace(name, identifier.get<std::string>());
  }
  return R::success(SourceIdentifierRule(std::move(overrides)));
}

std::string SourceIdentifierRule::identifierFor(std::string_view sourceName,
                                                std::string_view sourceVersion,
                                                std::string_view device) const {
  if (const auto found = overrides_.find(sourceName); found != overrides_.end()) {
    return found->second;
  }
  for (const auto name : kHealthAppNames) {
    if (sourceName == name) {
      return std::string(kHealthApp);
    }
  }
  const auto plainName = withPlainSpaces(sourceName);
  bool deviceName = false;
  for (const auto word : kDeviceWords) {
    deviceName = deviceName || containsWord(plainName, word);
  }
  if (deviceName || isAppleDeviceSource(sourceVersion, device)) {
    return std::string(kDevicePrefix) + slug(sourceName);
  }
  return std::string(kThirdPartyPrefix) + slug(sourceName);
}

std::string SourceIdentifierRule::slug(std::string_view name) {
  std::string out;
  bool beyondAscii = false;
  bool pendingDash = false;
  for (const char c : name) {
    if (isAsciiLetter(c) || isAsciiDigit(c)) {
      if (pendingDash && !out.empty()) {
        out.push_back('-');
      }
      pendingDash = false;
      out.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
    } else {
      beyondAscii = beyondAscii || static_cast<unsigned char>(c) >= 0x80;
      pendingDash = true;
    }
  }
  if (beyondAscii || out.empty()) {
    static constexpr char kHex[] = "0123456789abcdef";
    const auto hash = fnv1a(name);
    if (!out.empty()) {
      out.push_back('-');
    }
    for (int shift = 28; shift >= 0; shift -= 4) {
      out.push_back(kHex[(hash >> static_cast<unsigned>(shift)) & 0xFu]);
    }
  }
  return out;
}

}  // namespace velk::ingest
