// Bytes opened as an export archive: written to a file (the archive reader takes paths) and read
// through ExportSource::open, which decides by the signature whether it is a zip at all.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "FuzzSupport.h"

namespace {

std::filesystem::path scratchFile() {
  static const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("velk-fuzz-" + std::to_string(::getpid()) + ".zip");
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto path = scratchFile();
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    return 0;
  }
  const auto written = std::fwrite(data, 1, size, file);
  std::fclose(file);
  if (written != size) {
    return 0;
  }
  velk::ingest::ExportReadOptions options;
  options.threads = 1;
  options.chunkBytes = 4096;
  velk::fuzz::TouchingSink sink;
  (void)velk::ingest::ExportReader(options).read(path, sink);
  return 0;
}
