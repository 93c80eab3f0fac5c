#include "ExportPrologue.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <pugixml.hpp>

namespace velk::ingest {

namespace {

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

constexpr std::string_view kRootName = "HealthData";

// The end of a DOCTYPE declaration that starts at `at`, or npos when not in `text` yet. The
// internal subset ends at "]" followed by ">" (blanks between allowed); a broken subset whose
// end cannot be found still ends where the root element starts, since no declaration in a
// subset starts with "<HealthData".
std::size_t doctypeEnd(std::string_view text, std::size_t at) {
  const auto open = text.find('[', at);
  const auto close = text.find('>', at);
  if (close == std::string_view::npos) {
    return std::string_view::npos;
  }
  if (open == std::string_view::npos || close < open) {
    return close + 1;
  }
  for (auto bracket = text.find(']', open); bracket != std::string_view::npos;
       bracket = text.find(']', bracket + 1)) {
    auto after = bracket + 1;
    while (after < text.size() && isSpace(text[after])) {
      ++after;
    }
    if (after < text.size() && text[after] == '>') {
      return after + 1;
    }
  }
  for (auto root = text.find("<HealthData", open); root != std::string_view::npos;
       root = text.find("<HealthData", root + 1)) {
    const auto after = root + 1 + kRootName.size();
    if (after < text.size() && (isSpace(text[after]) || text[after] == '>' || text[after] == '/')) {
      return root;
    }
  }
  return std::string_view::npos;
}

// The root start tag at `at`: its name, then attributes up to ">" (quoted values may hold ">").
// Fills `scan` when the tag ends within `head`, and leaves it as it is when it does not yet.
void scanRootTag(std::string_view head, std::size_t at, PrologueScan& scan) {
  std::size_t nameEnd = at + 1;
  while (nameEnd < head.size() && !isSpace(head[nameEnd]) && head[nameEnd] != '>' &&
         head[nameEnd] != '/') {
    ++nameEnd;
  }
  char quote = '\0';
  for (auto i = nameEnd; i < head.size(); ++i) {
    const char c = head[i];
    if (quote != '\0') {
      quote = c == quote ? '\0' : quote;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '>') {
      scan.status = PrologueScan::Status::found;
      scan.rootName = std::string(head.substr(at + 1, nameEnd - at - 1));
      scan.bodyStart = i + 1;
      scan.rootIsEmpty = head[i - 1] == '/';
      return;
    }
  }
}

}  // namespace

std::string declaredEncoding(std::string_view head) {
  if (head.starts_with("\xEF\xBB\xBF")) {
    head.remove_prefix(3);
  }
  const auto end = head.find("?>");
  if (!head.starts_with("<?xml") || end == std::string_view::npos) {
    return {};
  }
  pugi::xml_document declaration;
  const std::string_view text = head.substr(0, end + 2);
  if (!declaration.load_buffer(text.data(), text.size(),
                               pugi::parse_declaration | pugi::parse_fragment,
                               pugi::encoding_utf8)) {
    return {};
  }
  return declaration.first_child().attribute("encoding").value();
}

PrologueScan scanPrologue(std::string_view head) {
  PrologueScan scan;
  std::size_t at = 0;
  if (head.substr(0, 3) == "\xEF\xBB\xBF") {
    at = 3;
  }
  while (true) {
    while (at < head.size() && isSpace(head[at])) {
      ++at;
    }
    if (at >= head.size()) {
      return scan;
    }
    if (head[at] != '<') {
      scan.status = PrologueScan::Status::notXml;
      return scan;
    }
    const auto rest = head.substr(at);
    std::size_t end = std::string_view::npos;
    if (rest.size() < 9) {
      return scan;
    } else if (rest.substr(0, 2) == "<?") {
      end = head.find("?>", at);
      end = end == std::string_view::npos ? end : end + 2;
    } else if (rest.substr(0, 4) == "<!--") {
      end = head.find("-->", at);
      end = end == std::string_view::npos ? end : end + 3;
    } else if (rest.substr(0, 9) == "<!DOCTYPE") {
      end = doctypeEnd(head, at);
    } else if (rest[1] == '!' || rest[1] == '/') {
      scan.status = PrologueScan::Status::notXml;
      return scan;
    } else {
      scanRootTag(head, at, scan);
      return scan;
    }
    if (end == std::string_view::npos) {
      return scan;
    }
    at = end;
  }
}

std::string_view findExportDateValue(std::string_view text) {
  const auto element = text.find("<ExportDate");
  if (element == std::string_view::npos) {
    return {};
  }
  const auto close = text.find('>', element);
  const auto value = text.find("value=\"", element);
  if (value == std::string_view::npos || value > close) {
    return {};
  }
  const auto start = value + 7;
  const auto end = text.find('"', start);
  return end == std::string_view::npos ? std::string_view{} : text.substr(start, end - start);
}

}  // namespace velk::ingest
