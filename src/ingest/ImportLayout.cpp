#include "ImportLayout.h"

#include <zlib.h>

namespace velk::ingest::layout {

std::uint32_t blockChecksum(const BlockHeader& header, const unsigned char* samples,
                            std::size_t size) {
  unsigned char columns[33];
  std::memcpy(columns, &header.typeId, 8);
  columns[8] = header.isLong ? 1 : 0;
  std::memcpy(columns + 9, &header.firstStart, 8);
  std::memcpy(columns + 17, &header.lastEnd, 8);
  std::memcpy(columns + 25, &header.sampleCount, 8);
  uLong crc = crc32_z(0, columns, sizeof columns);
  crc = crc32_z(crc, samples, size);
  return static_cast<std::uint32_t>(crc);
}

}  // namespace velk::ingest::layout
