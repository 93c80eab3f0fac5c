// Store-file text of any shape: parsing either fails with an error value or yields contents that
// build a database. Nothing may throw, crash or run away.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "ingest/StoreFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto contents = velk::ingest::StoreFile::parse(text, "fuzz.json");
  if (contents.isSuccess()) {
    const auto database = velk::ingest::StoreFile::makeDatabase(contents.value());
    for (const auto& sample : contents.value().samples) {
      (void)database->samples(sample.type, sample.start, sample.end);
    }
  }
  return 0;
}
