// Errors across the C interface: the interface's own errors, errors handed to the caller (one
// malloc'd block that velk_error_free releases) and errors lent to a callback.
#pragma once

#include <string>

#include "velk/Error.h"
#include "velk/velk.h"

namespace velk::capi {

/// An error of the interface's own checks, in VELK_C_ERROR_DOMAIN.
Error interfaceError(velk_error_code code, std::string message);

/// A NULL argument: "<name> is NULL".
Error nullArgument(const char* name);

/// A copy of `error` that the caller owns. Never NULL: when memory runs out, a static
/// out-of-memory error (which velk_error_free leaves alone) stands in.
velk_error* handOver(const Error& error);

/// A view of `error` for a callback; valid while both live.
class LentError {
 public:
  explicit LentError(const Error& error)
      : view_{error.domain().c_str(), error.code(), error.message().c_str()} {}
  const velk_error* get() const { return &view_; }

 private:
  velk_error view_;
};

}  // namespace velk::capi
