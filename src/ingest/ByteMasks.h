// The control characters among 64 bytes, as the bits of words: bit k stands for byte k. Every
// byte of an export passes through here once before it is parsed (for the line feeds that the
// warnings count and the forbidden characters that are replaced), so the bytes are looked at
// sixteen at a time where the processor can (SSE2 belongs to every x86-64); elsewhere, and as
// the reference the faster reading is tested against, byte by byte. The end of an attribute
// value is looked for in the same way.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace velk::ingest {

/// XML 1.0 forbids the C0 controls other than tab, line feed and carriage return.
constexpr bool isForbiddenControl(unsigned char c) {
  return c < 0x20 && c != '\t' && c != '\n' && c != '\r';
}

struct ControlMasks {
  std::uint64_t lineFeeds = 0;
  std::uint64_t forbidden = 0;
};

/// The offset of the last `c` in text[0, end), or npos. glibc's memrchr looks at many bytes at a
/// time; string_view::rfind looks at one.
inline std::size_t findLastByte(std::string_view text, char c,
                                std::size_t end = std::string_view::npos) {
  const auto size = std::min(end, text.size());
  const void* found = size == 0 ? nullptr : ::memrchr(text.data(), c, size);
  return found == nullptr ? std::string_view::npos
                          : static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

namespace bytewise {

inline ControlMasks controlMasks(const char* bytes) {
  ControlMasks masks;
  for (unsigned k = 0; k < 64; ++k) {
    const auto c = static_cast<unsigned char>(bytes[k]);
    masks.lineFeeds |= std::uint64_t{c == '\n'} << k;
    masks.forbidden |= std::uint64_t{isForbiddenControl(c)} << k;
  }
  return masks;
}

/// Whether `c` may stand in a name as the record scanner reads them: ASCII letters, digits and
/// "_.:-" (XML allows more; the scanner leaves those names to pugixml).
constexpr bool isNameByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '.' || c == ':' || c == '-';
}

/// The offset of the first byte in text[at, limit) that may not stand in a name, or `limit`.
inline std::size_t findNameEnd(const char* text, std::size_t at, std::size_t limit) {
  while (at < limit && isNameByte(text[at])) {
    ++at;
  }
  return at;
}

/// The offset of the first '"', '&', '<' or zero byte in text[at, limit), or `limit`.
inline std::size_t findValueStop(const char* text, std::size_t at, std::size_t limit) {
  for (; at < limit; ++at) {
    if (text[at] == '"' || text[at] == '&' || text[at] == '<' || text[at] == '\0') {
      return at;
    }
  }
  return limit;
}

}  // namespace bytewise

#if defined(__SSE2__)

namespace detail {

inline __m128i load16(const char* bytes) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

// Below 0x20 as unsigned bytes: the larger of the byte and 0x1F is 0x1F.
inline __m128i isControl(__m128i block) {
  const auto highestControl = _mm_set1_epi8(0x1f);
  return _mm_cmpeq_epi8(_mm_max_epu8(block, highestControl), highestControl);
}

}  // namespace detail

/// The line feeds and forbidden controls among the 64 bytes at `bytes`.
inline ControlMasks controlMasks(const char* bytes) {
  using detail::isControl;
  using detail::load16;
  // Most groups hold no control at all (a line of an export is some 300 bytes long).
  const auto any =
      _mm_or_si128(_mm_or_si128(isControl(load16(bytes)), isControl(load16(bytes + 16))),
                   _mm_or_si128(isControl(load16(bytes + 32)), isControl(load16(bytes + 48))));
  if (_mm_movemask_epi8(any) == 0) {
    return {};
  }
  ControlMasks masks;
  for (unsigned part = 0; part < 4; ++part) {
    const auto block = load16(bytes + 16 * part);
    const auto lineFeed = _mm_cmpeq_epi8(block, _mm_set1_epi8('\n'));
    const auto allowed = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(block, _mm_set1_epi8('\t')),
                                                   _mm_cmpeq_epi8(block, _mm_set1_epi8('\r'))),
                                      lineFeed);
    const auto forbidden = _mm_andnot_si128(allowed, isControl(block));
    const auto shift = 16 * part;
    masks.lineFeeds |= std::uint64_t{static_cast<std::uint32_t>(_mm_movemask_epi8(lineFeed))}
                       << shift;
    masks.forbidden |= std::uint64_t{static_cast<std::uint32_t>(_mm_movemask_epi8(forbidden))}
                       << shift;
  }
  return masks;
}

/// The offset of the first byte in text[at, limit) that may not stand in a name, or `limit`.
inline std::size_t findNameEnd(const char* text, std::size_t at, std::size_t limit) {
  using detail::load16;
  // Unsigned "x <= most" for each byte: the smaller of x and most is x.
  const auto atMost = [](__m128i x, char most) {
    return _mm_cmpeq_epi8(_mm_min_epu8(x, _mm_set1_epi8(most)), x);
  };
  for (; at + 16 <= limit; at += 16) {
    const auto block = load16(text + at);
    // Letters of either case are 'a'..'z' with the 0x20 bit set; nothing else is.
    const auto letter =
        atMost(_mm_sub_epi8(_mm_or_si128(block, _mm_set1_epi8(0x20)), _mm_set1_epi8('a')), 25);
    const auto digit = atMost(_mm_sub_epi8(block, _mm_set1_epi8('0')), 9);
    const auto marks = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(block, _mm_set1_epi8('_')),
                                                 _mm_cmpeq_epi8(block, _mm_set1_epi8('.'))),
                                    _mm_or_si128(_mm_cmpeq_epi8(block, _mm_set1_epi8(':')),
                                                 _mm_cmpeq_epi8(block, _mm_set1_epi8('-'))));
    const auto name = _mm_or_si128(_mm_or_si128(letter, digit), marks);
    const auto others = ~static_cast<unsigned>(_mm_movemask_epi8(name)) & 0xFFFFu;
    if (others != 0) {
      return at + static_cast<std::size_t>(std::countr_zero(others));
    }
  }
  return bytewise::findNameEnd(text, at, limit);
}

/// The offset of the first '"', '&', '<' or zero byte in text[at, limit), or `limit`.
inline std::size_t findValueStop(const char* text, std::size_t at, std::size_t limit) {
  using detail::load16;
  for (; at + 16 <= limit; at += 16) {
    const auto block = load16(text + at);
    const auto stops = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(block, _mm_set1_epi8('"')),
                                                 _mm_cmpeq_epi8(block, _mm_set1_epi8('&'))),
                                    _mm_or_si128(_mm_cmpeq_epi8(block, _mm_set1_epi8('<')),
                                                 _mm_cmpeq_epi8(block, _mm_setzero_si128())));
    if (const auto mask = static_cast<unsigned>(_mm_movemask_epi8(stops)); mask != 0) {
      return at + static_cast<std::size_t>(std::countr_zero(mask));
    }
  }
  return bytewise::findValueStop(text, at, limit);
}

#else

inline ControlMasks controlMasks(const char* bytes) {
  return bytewise::controlMasks(bytes);
}

inline std::size_t findValueStop(const char* text, std::size_t at, std::size_t limit) {
  return bytewise::findValueStop(text, at, limit);
}

inline std::size_t findNameEnd(const char* text, std::size_t at, std::size_t limit) {
  return bytewise::findNameEnd(text, at, limit);
}

#endif

}  // namespace velk::ingest
