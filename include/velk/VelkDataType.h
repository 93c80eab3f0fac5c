// The three summary kinds. The raw value of each kind is the user-defaults key under which the date
// of its last extraction is kept, so the texts are part of the stored state and never change.
#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace velk {

enum class VelkDataType { sleepSummary, physicalSummary, bodySummary };

/// Every kind, in declaration order.
inline constexpr std::array<VelkDataType, 3> allVelkDataTypes{
    VelkDataType::sleepSummary, VelkDataType::physicalSummary, VelkDataType::bodySummary};

/// "velk_last_sleep_date_extraction", "velk_last_physical_date_extraction" or
/// "velk_last_body_date_extraction".
std::string_view rawValue(VelkDataType kind);

/// The kind whose raw value is exactly `text`; absent for any other text.
std::optional<VelkDataType> velkDataTypeFromRawValue(std::string_view text);

}  // namespace velk
