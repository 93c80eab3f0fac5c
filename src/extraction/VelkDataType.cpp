#include "velk/VelkDataType.h"

namespace velk {

std::string_view rawValue(VelkDataType kind) {
  switch (kind) {
    case VelkDataType::sleepSummary:
      return "velk_last_sleep_date_extraction";
    case VelkDataType::physicalSummary:
      return "velk_last_physical_date_extraction";
    case VelkDataType::bodySummary:
      return "velk_last_body_date_extraction";
  }
  return {};
}

std::optional<VelkDataType> velkDataTypeFromRawValue(std::string_view text) {
  for (const VelkDataType kind : allVelkDataTypes) {
    if (rawValue(kind) == text) {
      return kind;
    }
  }
  return std::nullopt;
}

}  // namespace velk
