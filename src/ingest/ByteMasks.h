// Bytes of a kind among 64, as the bits of a word: bit k stands for byte k. Every byte of an
// export passes through these twice before it is parsed (forbidden characters, line feeds), so
// they look at sixteen bytes at a time where the processor can (SSE2 belongs to every x86-64);
// elsewhere, and as the reference the faster ones are tested against, byte by byte.
#pragma once

#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace velk::ingest {

/// XML 1.0 forbids the C0 controls other than tab, line feed and carriage return.
constexpr bool isForbiddenControl(unsigned char c) {
  return c < 0x20 && c != '\t' && c != '\n' && c != '\r';
}

namespace bytewise {

inline std::uint64_t lineFeedMask(const char* bytes) {
  std::uint64_t mask = 0;
  for (unsigned k = 0; k < 64; ++k) {
    mask |= std::uint64_t{bytes[k] == '\n'} << k;
  }
  return mask;
}

inline std::uint64_t forbiddenControlMask(const char* bytes) {
  std::uint64_t mask = 0;
  for (unsigned k = 0; k < 64; ++k) {
    mask |= std::uint64_t{isForbiddenControl(static_cast<unsigned char>(bytes[k]))} << k;
  }
  return mask;
}

}  // namespace bytewise

#if defined(__SSE2__)

namespace detail {

inline __m128i load16(const char* bytes) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

// The bits of `compare` on the four 16-byte blocks at `bytes`, the first in the lowest bits.
// Most groups hold none of the bytes looked for, so `quick` (whose set bits must include those
// of `compare`) is tried on all four together first.
template <typename Quick, typename Compare>
std::uint64_t maskOf64(const char* bytes, Quick quick, Compare compare) {
  const auto any = _mm_or_si128(_mm_or_si128(quick(load16(bytes)), quick(load16(bytes + 16))),
                                _mm_or_si128(quick(load16(bytes + 32)), quick(load16(bytes + 48))));
  if (_mm_movemask_epi8(any) == 0) {
    return 0;
  }
  std::uint64_t mask = 0;
  for (unsigned part = 0; part < 4; ++part) {
    const auto bits =
        static_cast<std::uint32_t>(_mm_movemask_epi8(compare(load16(bytes + 16 * part))));
    mask |= std::uint64_t{bits} << (16 * part);
  }
  return mask;
}

inline __m128i isLineFeed(__m128i block) {
  return _mm_cmpeq_epi8(block, _mm_set1_epi8('\n'));
}

// Below 0x20 as unsigned bytes: the larger of the byte and 0x1F is 0x1F.
inline __m128i isControl(__m128i block) {
  const auto highestControl = _mm_set1_epi8(0x1f);
  return _mm_cmpeq_epi8(_mm_max_epu8(block, highestControl), highestControl);
}

inline __m128i isForbiddenControl(__m128i block) {
  const auto allowed = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(block, _mm_set1_epi8('\t')),
                                                 _mm_cmpeq_epi8(block, _mm_set1_epi8('\n'))),
                                    _mm_cmpeq_epi8(block, _mm_set1_epi8('\r')));
  return _mm_andnot_si128(allowed, isControl(block));
}

}  // namespace detail

/// Which of the 64 bytes at `bytes` are line feeds.
inline std::uint64_t lineFeedMask(const char* bytes) {
  return detail::maskOf64(bytes, detail::isLineFeed, detail::isLineFeed);
}

/// Which of the 64 bytes at `bytes` are forbidden controls.
inline std::uint64_t forbiddenControlMask(const char* bytes) {
  return detail::maskOf64(bytes, detail::isControl, detail::isForbiddenControl);
}

#else

inline std::uint64_t lineFeedMask(const char* bytes) {
  return bytewise::lineFeedMask(bytes);
}

inline std::uint64_t forbiddenControlMask(const char* bytes) {
  return bytewise::forbiddenControlMask(bytes);
}

#endif

}  // namespace velk::ingest
