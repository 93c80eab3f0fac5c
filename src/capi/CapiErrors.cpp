#include "CapiErrors.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

namespace velk::capi {
namespace {

velk_error outOfMemory{VELK_C_ERROR_DOMAIN, VELK_ERROR_INTERNAL, "out of memory"};

// Copies `text` with its terminating zero to `cursor` and returns where the copy starts.
const char* place(char*& cursor, std::string_view text) {
  char* start = cursor;
  std::memcpy(start, text.data(), text.size());
  start[text.size()] = '\0';
  cursor += text.size() + 1;
  return start;
}

}  // namespace

Error interfaceError(velk_error_code code, std::string message) {
  return Error(VELK_C_ERROR_DOMAIN, static_cast<std::int64_t>(code), std::move(message));
}

Error nullArgument(const char* name) {
  return interfaceError(VELK_ERROR_INVALID_ARGUMENT, std::string(name) + " is NULL");
}

// One block holds the struct and both strings, so that the caller frees it with one call and a
// host without C++ (or with another allocator in its own code) never sees a destructor.
velk_error* handOver(const Error& error) {
  const std::size_t size =
      sizeof(velk_error) + error.domain().size() + 1 + error.message().size() + 1;
  void* block = std::malloc(size);
  if (block == nullptr) {
    return &outOfMemory;
  }
  char* cursor = static_cast<char*>(block) + sizeof(velk_error);
  const char* domain = place(cursor, error.domain());
  const char* message = place(cursor, error.message());
  return new (block) velk_error{domain, error.code(), message};
}

}  // namespace velk::capi

extern "C" void velk_error_free(velk_error* error) {
  if (error == nullptr || error == &velk::capi::outOfMemory) {
    return;
  }
  std::free(error);
}
