// Bytes read as a bare export XML. The first two bytes choose how the reader meets them (part
// size, threads, how many bytes each read returns) so that part boundaries and torn reads fall
// everywhere; the rest is the file. The reader must answer with a report or an error.
#include <cstddef>
#include <cstdint>

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) {
    return 0;
  }
  velk::ingest::ExportReadOptions options;
  options.chunkBytes = std::size_t{256} << (data[0] & 0x0f);  // 256 B .. 8 MiB
  options.threads = (data[0] & 0x10) != 0 ? 2 : 1;
  // Reads shorter than this cost the reader a block-sized buffer each, which only slows the
  // fuzzer down without reaching other code.
  const std::size_t step = data[1] == 0 ? size : std::size_t{data[1]} * 509;
  velk::fuzz::MemorySource source(data + 2, size - 2, step);
  velk::fuzz::TouchingSink sink;
  (void)velk::ingest::ExportReader(options).read(source, sink);
  return 0;
}
