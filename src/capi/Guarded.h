// The frame of every function of the C interface: the body returns an optional Error, which is
// handed over to the caller; an exception from anywhere below becomes VELK_ERROR_INTERNAL, since
// nothing may unwind into C.
#pragma once

#include <exception>
#include <optional>
#include <string>

#include "CapiErrors.h"

namespace velk::capi {

template <typename Body>
velk_error* guarded(Body&& body) noexcept {
  try {
    std::optional<Error> error = body();
    return error ? handOver(*error) : nullptr;
  } catch (const std::exception& exception) {
    return handOver(interfaceError(VELK_ERROR_INTERNAL, exception.what()));
  } catch (...) {
    return handOver(interfaceError(VELK_ERROR_INTERNAL, "unexpected failure"));
  }
}

}  // namespace velk::capi
