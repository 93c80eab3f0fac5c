// velk_permission_extraction_* and the four permission requests, in their host form: (flag, no
// error) or (false, the error). The answer holds a request claim until the callback has run.
#include <optional>

#include "Guarded.h"
#include "Handles.h"

using velk::Error;
using velk::VelkPermissionExtraction;
using velk::capi::DeviceSession;
using velk::capi::guarded;
using velk::capi::LentError;
using velk::capi::nullArgument;

namespace {

using HostRequest = void (VelkPermissionExtraction::*)(VelkPermissionExtraction::HostCompletion);

velk_error* request(velk_permission_extraction* extraction, velk_permission_callback callback,
                    void* context, HostRequest operation) {
  return guarded([&]() -> std::optional<Error> {
    if (extraction == nullptr) {
      return nullArgument("extraction");
    }
    if (callback == nullptr) {
      return nullArgument("callback");
    }
    auto claimed = extraction->session->claim(DeviceSession::Claim::Kind::request);
    if (claimed.isFailure()) {
      return claimed.error();
    }
    auto claim = std::move(claimed).value();
    ((*extraction->extraction).*
     operation)([claim, callback, context](bool success, std::optional<Error> error) {
      claim->session().deliver([&] {
        if (error) {
          LentError lent(*error);
          callback(context, 0, lent.get());
          return;
        }
        callback(context, success ? 1 : 0, nullptr);
      });
      claim->release();
    });
    return std::nullopt;
  });
}

}  // namespace

extern "C" {

velk_error* velk_permission_extraction_new(velk_device* device,
                                           velk_permission_extraction** extraction_out) {
  return guarded([&]() -> std::optional<Error> {
    if (extraction_out == nullptr) {
      return nullArgument("extraction_out");
    }
    *extraction_out = nullptr;
    if (device == nullptr) {
      return nullArgument("device");
    }
    auto claimed = device->session->claim(DeviceSession::Claim::Kind::call);
    if (claimed.isFailure()) {
      return claimed.error();
    }
    auto extraction = std::make_unique<VelkPermissionExtraction>();
    *extraction_out = new velk_permission_extraction{device->session, std::move(extraction)};
    return std::nullopt;
  });
}

void velk_permission_extraction_free(velk_permission_extraction* extraction) {
  delete extraction;
}

velk_error* velk_request_all_permissions_objc(velk_permission_extraction* extraction,
                                              velk_permission_callback callback, void* context) {
  return request(extraction, callback, context,
                 &VelkPermissionExtraction::requestAllPermissionsObjc);
}

velk_error* velk_request_sleep_permissions_objc(velk_permission_extraction* extraction,
                                                velk_permission_callback callback, void* context) {
  return request(extraction, callback, context,
                 &VelkPermissionExtraction::requestSleepPermissionsObjc);
}

velk_error* velk_request_physical_permissions_objc(velk_permission_extraction* extraction,
                                                   velk_permission_callback callback,
                                                   void* context) {
  return request(extraction, callback, context,
                 &VelkPermissionExtraction::requestPhysicalPermissionsObjc);
}

velk_error* velk_request_body_permissions_objc(velk_permission_extraction* extraction,
                                               velk_permission_callback callback, void* context) {
  return request(extraction, callback, context,
                 &VelkPermissionExtraction::requesBodyPermissionsObjc);
}

}  // extern "C"
