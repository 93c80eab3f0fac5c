#include "ElementScanner.h"

#include <array>
#include <cstdint>

#include "ByteMasks.h"

namespace velk::ingest {

namespace {

enum : std::uint8_t { kNameStart = 1, kSpace = 2 };

// The bytes that start a name (the rest of it is findNameEnd's) and the blanks between tags.
// pugixml takes more names (beyond ASCII); the scanner leaves those to it.
constexpr std::array<std::uint8_t, 256> kByteClasses = [] {
  std::array<std::uint8_t, 256> classes{};
  for (std::size_t c = 'a'; c <= 'z'; ++c) {
    classes[c] = classes[c - 'a' + 'A'] = kNameStart;
  }
  classes['_'] = kNameStart;
  for (const char c : {' ', '\t', '\n', '\r'}) {
    classes[static_cast<unsigned char>(c)] = kSpace;
  }
  return classes;
}();

bool is(char c, std::uint8_t byteClass) {
  return (kByteClasses[static_cast<unsigned char>(c)] & byteClass) != 0;
}

void appendUtf8(std::string& out, std::uint32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

int digitValue(char c, std::uint32_t base) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  const char lower = static_cast<char>(c | 0x20);
  return base == 16 && lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// "&#8217;" or "&#x2019;" at the start of `text`, for a real character (not 0, no surrogate)
// in at most seven digits: appends its UTF-8 and returns the reference's length, else 0.
std::size_t decodeReference(std::string_view text, std::string& out) {
  std::uint32_t base = 10;
  std::size_t at = 2;  // past "&#"
  if (at < text.size() && text[at] == 'x') {
    base = 16;
    ++at;
  }
  const auto first = at;
  std::uint32_t value = 0;
  for (; at < text.size() && at - first < 8; ++at) {
    const int digit = digitValue(text[at], base);
    if (digit < 0) {
      break;
    }
    value = value * base + static_cast<std::uint32_t>(digit);
  }
  if (at == first || at - first > 7 || at >= text.size() || text[at] != ';' || value == 0 ||
      (value >= 0xD800 && value <= 0xDFFF) || value > 0x10FFFF) {
    return 0;
  }
  appendUtf8(out, value);
  return at + 1;
}

// The escape at the start of `text` ("&lt;", "&#8217;"): appends what it stands for and returns
// its length, or 0 when the scanner does not know it.
std::size_t decodeEscape(std::string_view text, std::string& out) {
  struct Named {
    std::string_view escape;
    char character;
  };
  static constexpr Named kNamed[] = {
      {"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}};
  for (const auto& named : kNamed) {
    if (text.starts_with(named.escape)) {
      out.push_back(named.character);
      return named.escape.size();
    }
  }
  return text.size() > 2 && text[1] == '#' ? decodeReference(text, out) : 0;
}

}  // namespace

ElementScanner::ElementScanner(std::string_view text, std::string_view indent)
    : text_(text), indent_(indent), limit_(text.empty() ? 0 : text.size() - 1) {}

std::size_t ElementScanner::scan(std::size_t from, ElementReader& reader) {
  auto resume = from;
  auto at = from;
  while (true) {
    while (at < text_.size() && is(text_[at], kSpace)) {
      ++at;
    }
    if (at == text_.size()) {
      return at;
    }
    std::size_t end = 0;
    std::size_t next = 0;
    if (text_[at] != '<' || !scanTree(at, end) || !endsBeforeATopLevelLine(end, next)) {
      return resume;
    }
    replay(reader);
    resume = end;
    at = next;
  }
}

// Scans the top-level element whose "<" is at `at` into events; `end` is just past it.
bool ElementScanner::scanTree(std::size_t at, std::size_t& end) {
  events_.clear();
  attributes_.clear();
  open_.clear();
  childDecodedUsed_ = 0;
  topTag_ = true;
  while (true) {
    bool closed = false;
    if (!scanStartTag(at, closed)) {
      return false;
    }
    topTag_ = false;
    if (!closed) {
      open_.push_back(events_.back().name);
    } else if (open_.empty()) {
      end = at;
      return true;
    }
    while (true) {  // the content of the innermost open element, up to a child's start tag
      while (at < limit_ && is(text_[at], kSpace)) {
        ++at;
      }
      if (at + 1 >= limit_ || text_[at] != '<') {
        return false;
      }
      if (is(text_[at + 1], kNameStart)) {
        break;
      }
      if (text_[at + 1] != '/' || !scanEndTag(at, open_.back())) {
        return false;
      }
      events_.push_back(Event{});
      open_.pop_back();
      if (open_.empty()) {
        end = at;
        return true;
      }
    }
  }
}

// A start tag from its "<" at `at`; `at` ends past its ">". `closed`: it ended in "/>".
bool ElementScanner::scanStartTag(std::size_t& at, bool& closed) {
  auto p = at + 1;
  if (p >= limit_ || !is(text_[p], kNameStart)) {
    return false;
  }
  p = findNameEnd(text_.data(), p, limit_);
  const auto event = events_.size();
  events_.push_back(Event{at, text_.substr(at + 1, p - at - 1), attributes_.size(), 0});
  while (p < limit_) {
    if (is(text_[p], kSpace)) {
      while (p < limit_ && is(text_[p], kSpace)) {
        ++p;
      }
      if (p < limit_ && is(text_[p], kNameStart)) {
        if (!scanAttribute(p)) {
          return false;
        }
        continue;
      }
    }
    if (p >= limit_) {
      return false;
    }
    closed = text_[p] == '/';
    if (closed ? p + 1 >= limit_ || text_[p + 1] != '>' : text_[p] != '>') {
      return false;
    }
    at = p + (closed ? 2 : 1);
    events_[event].attributeCount = attributes_.size() - events_[event].firstAttribute;
    if (closed) {
      events_.push_back(Event{});
    }
    return true;
  }
  return false;
}

// name="value" from the name's first byte at `at`; `at` ends past the closing quote.
bool ElementScanner::scanAttribute(std::size_t& at) {
  auto p = findNameEnd(text_.data(), at, limit_);
  if (p + 1 >= limit_ || text_[p] != '=' || text_[p + 1] != '"') {
    return false;
  }
  const auto name = text_.substr(at, p - at);
  p += 2;
  std::string_view value;
  if (!scanValue(p, value)) {
    return false;
  }
  attributes_.push_back(RawAttribute{name, value});
  at = p;
  return true;
}

// A value from its first byte at `at` up to the closing quote; `at` ends past the quote.
bool ElementScanner::scanValue(std::size_t& at, std::string_view& value) {
  const auto* text = text_.data();
  auto stop = findValueStop(text, at, limit_);
  bool escaped = false;
  while (stop < limit_ && text[stop] == '&') {  // escapes hold no quote: look past them
    escaped = true;
    stop = findValueStop(text, stop + 1, limit_);
  }
  if (stop >= limit_ || text[stop] != '"') {
    return false;
  }
  const auto raw = text_.substr(at, stop - at);
  at = stop + 1;
  if (!escaped) {
    value = raw;
    return true;
  }
  const auto slot = attributes_.size() - events_.back().firstAttribute;
  if (topTag_ && slot < topDecoded_.size()) {
    auto& decoded = topDecoded_[slot];
    if (decoded.raw != raw) {
      decoded.raw.clear();  // until decoded: a failure must not leave it looking valid
      if (!decodeInto(raw, decoded.text)) {
        return false;
      }
      decoded.raw.assign(raw);
    }
    value = decoded.text;
    return true;
  }
  if (childDecodedUsed_ == childDecoded_.size()) {
    childDecoded_.push_back(std::make_unique<std::string>());
  }
  auto& decoded = *childDecoded_[childDecodedUsed_++];
  if (!decodeInto(raw, decoded)) {
    return false;
  }
  value = decoded;
  return true;
}

// `raw` with its escapes decoded, into `out`; false when it holds one the scanner does not know.
bool ElementScanner::decodeInto(std::string_view raw, std::string& out) const {
  out.clear();
  for (auto amp = raw.find('&'); amp != std::string_view::npos; amp = raw.find('&')) {
    out.append(raw.substr(0, amp));
    const auto length = decodeEscape(raw.substr(amp), out);
    if (length == 0) {
      return false;
    }
    raw.remove_prefix(amp + length);
  }
  out.append(raw);
  return true;
}

// "</name>" at `at`; `at` ends past it.
bool ElementScanner::scanEndTag(std::size_t& at, std::string_view name) const {
  const auto close = at + 2 + name.size();
  if (close >= limit_ || text_.compare(at + 2, name.size(), name) != 0 || text_[close] != '>') {
    return false;
  }
  at = close + 1;
  return true;
}

// Whether only blanks follow `end` up to the end of the text or to a line that starts a
// top-level element; `next` is then where that element's "<" is (or the end). pugixml's way of
// recovering from damage after an element depends on such a line, so the scanner stops where
// another element or anything else follows on the same line.
bool ElementScanner::endsBeforeATopLevelLine(std::size_t end, std::size_t& next) const {
  auto q = end;
  while (q < text_.size() && is(text_[q], kSpace)) {
    ++q;
  }
  if (q == text_.size()) {
    next = q;
    return true;
  }
  if (q < end + 1 + indent_.size()) {
    return false;
  }
  const auto lineStart = q - indent_.size();
  if (text_[lineStart - 1] != '\n' || !startsTopLevelElement(text_, lineStart, indent_)) {
    return false;
  }
  next = q;
  return true;
}

void ElementScanner::replay(ElementReader& reader) const {
  reader.beginTree();
  for (const auto& event : events_) {
    if (event.name.empty()) {
      reader.end();
    } else {
      reader.start(event.name, event.offset,
                   std::span(attributes_).subspan(event.firstAttribute, event.attributeCount));
    }
  }
}

}  // namespace velk::ingest
