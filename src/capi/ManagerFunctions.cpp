// velk_manager_* and the summary requests: each request takes a request claim on the session,
// which the answer releases after the host's callback has run (or been dropped), and turns the
// dictionary into JSON text that lives for the length of the callback.
#include <optional>
#include <string>

#include "Guarded.h"
#include "Handles.h"

using velk::Date;
using velk::Error;
using velk::VelkDataType;
using velk::VelkExtractionManager;
using velk::capi::DeviceSession;
using velk::capi::guarded;
using velk::capi::interfaceError;
using velk::capi::LentError;
using velk::capi::nullArgument;

namespace {

using DictionaryRequest =
    void (VelkExtractionManager::*)(Date, VelkExtractionManager::DictionaryCompletion);
using DateGetter = std::optional<Date> (VelkExtractionManager::*)() const;

// Invalid UTF-8 in a text value (a source name from a damaged export) is replaced rather than
// failing the whole document.
std::string jsonText(const nlohmann::json& dictionary) {
  return dictionary.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

velk_error* request(velk_manager* manager, double date, velk_summary_callback callback,
                    void* context, DictionaryRequest operation) {
  return guarded([&]() -> std::optional<Error> {
    if (manager == nullptr) {
      return nullArgument("manager");
    }
    if (callback == nullptr) {
      return nullArgument("callback");
    }
    auto claimed = manager->session->claim(DeviceSession::Claim::Kind::request);
    if (claimed.isFailure()) {
      return claimed.error();
    }
    auto claim = std::move(claimed).value();
    ((*manager->manager).*operation)(
        Date::fromReferenceSeconds(date),
        [claim, callback, context](std::optional<nlohmann::json> dictionary,
                                   std::optional<Error> error) {
          claim->session().deliver([&] {
            if (error) {
              LentError lent(*error);
              callback(context, nullptr, lent.get());
              return;
            }
            const std::string text = dictionary ? jsonText(*dictionary) : "{}";
            callback(context, text.c_str(), nullptr);
          });
          claim->release();
        });
    return std::nullopt;
  });
}

velk_error* readDate(const velk_manager* manager, int* has_date_out, double* date_out,
                     const std::function<std::optional<Date>(const VelkExtractionManager&)>& read) {
  return guarded([&]() -> std::optional<Error> {
    if (manager == nullptr) {
      return nullArgument("manager");
    }
    if (has_date_out == nullptr) {
      return nullArgument("has_date_out");
    }
    if (date_out == nullptr) {
      return nullArgument("date_out");
    }
    auto claimed = manager->session->claim(DeviceSession::Claim::Kind::call);
    if (claimed.isFailure()) {
      return claimed.error();
    }
    const std::optional<Date> date = read(*manager->manager);
    *has_date_out = date ? 1 : 0;
    *date_out = date ? date->timeIntervalSinceReferenceDate() : 0.0;
    return std::nullopt;
  });
}

velk_error* readDate(const velk_manager* manager, int* has_date_out, double* date_out,
                     DateGetter getter) {
  return readDate(manager, has_date_out, date_out,
                  [getter](const VelkExtractionManager& m) { return (m.*getter)(); });
}

}  // namespace

extern "C" {

velk_error* velk_manager_new(velk_device* device, velk_manager** manager_out) {
  return guarded([&]() -> std::optional<Error> {
    if (manager_out == nullptr) {
      return nullArgument("manager_out");
    }
    *manager_out = nullptr;
    if (device == nullptr) {
      return nullArgument("device");
    }
    auto claimed = device->session->claim(DeviceSession::Claim::Kind::call);
    if (claimed.isFailure()) {
      return claimed.error();
    }
    auto manager = std::make_unique<VelkExtractionManager>();
    *manager_out = new velk_manager{device->session, std::move(manager)};
    return std::nullopt;
  });
}

void velk_manager_free(velk_manager* manager) {
  delete manager;
}

velk_error* velk_get_sleep_summary_objc(velk_manager* manager, double date,
                                        velk_summary_callback callback, void* context) {
  return request(manager, date, callback, context, &VelkExtractionManager::getSleepSummayObjc);
}

velk_error* velk_get_physical_summary_objc(velk_manager* manager, double date,
                                           velk_summary_callback callback, void* context) {
  return request(manager, date, callback, context, &VelkExtractionManager::getPhysicalSummaryObjc);
}

velk_error* velk_get_body_summary_objc(velk_manager* manager, double date,
                                       velk_summary_callback callback, void* context) {
  return request(manager, date, callback, context, &VelkExtractionManager::getBodySummaryObjc);
}

velk_error* velk_get_last_extraction_date(const velk_manager* manager, velk_data_type kind,
                                          int* has_date_out, double* date_out) {
  std::optional<VelkDataType> chosen;
  switch (kind) {
    case VELK_SLEEP_SUMMARY:
      chosen = VelkDataType::sleepSummary;
      break;
    case VELK_PHYSICAL_SUMMARY:
      chosen = VelkDataType::physicalSummary;
      break;
    case VELK_BODY_SUMMARY:
      chosen = VelkDataType::bodySummary;
      break;
  }
  if (!chosen) {
    return velk::capi::handOver(interfaceError(
        VELK_ERROR_INVALID_ARGUMENT,
        "kind " + std::to_string(static_cast<int>(kind)) + " is not a summary kind"));
  }
  return readDate(
      manager, has_date_out, date_out,
      [kind = *chosen](const VelkExtractionManager& m) { return m.getLastExtractionDate(kind); });
}

velk_error* velk_get_last_extraction_date_of_sleep(const velk_manager* manager, int* has_date_out,
                                                   double* date_out) {
  return readDate(manager, has_date_out, date_out,
                  &VelkExtractionManager::getLastExtractionDateOfSleep);
}

velk_error* velk_get_last_extraction_date_of_physical(const velk_manager* manager,
                                                      int* has_date_out, double* date_out) {
  return readDate(manager, has_date_out, date_out,
                  &VelkExtractionManager::getLastExtractionDateOfPhysical);
}

velk_error* velk_get_last_extraction_date_of_body(const velk_manager* manager, int* has_date_out,
                                                  double* date_out) {
  return readDate(manager, has_date_out, date_out,
                  &VelkExtractionManager::getLastExtractionDateOfBody);
}

}  // extern "C"
