// Health-store object types: a type identifier and the kind of object it names.
//
// The platform hands out a type only for an identifier it knows; so do the factories here, which
// ask the installed device's health database (platform/HealthDatabase.h). Types are plain
// values: equal when their identifiers and kinds are, ordered by identifier, usable in sets.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/InternedString.h"

namespace velk::platform {

enum class HKObjectKind : std::uint8_t { quantity, category, characteristic, workout };

inline constexpr std::string_view HKWorkoutTypeIdentifier = "HKWorkoutTypeIdentifier";

class HKObjectType {
 public:
  HKObjectType(InternedString identifier, HKObjectKind kind)
      : identifier_(identifier), kind_(kind) {}

  /// The type for the identifier, absent when the health database does not know it or the
  /// identifier names another kind (a category identifier is no quantity type).
  static std::optional<HKObjectType> quantityTypeForIdentifier(std::string_view identifier);
  static std::optional<HKObjectType> categoryTypeForIdentifier(std::string_view identifier);
  static std::optional<HKObjectType> characteristicTypeForIdentifier(std::string_view identifier);
  static std::optional<HKObjectType> workoutType();

  /// The kind that an identifier's prefix names ("HKQuantityTypeIdentifier...": quantity), if any.
  static std::optional<HKObjectKind> kindOfIdentifier(std::string_view identifier);

  /// The type identifiers that every health store knows, whatever it holds.
  static const std::vector<std::string_view>& platformIdentifiers();

  const std::string& identifier() const { return identifier_.str(); }
  HKObjectKind kind() const { return kind_; }

  /// Quantity, category and workout types are sample types; characteristics are not.
  bool isSampleType() const { return kind_ != HKObjectKind::characteristic; }

  friend bool operator==(const HKObjectType&, const HKObjectType&) = default;
  friend std::strong_ordering operator<=>(const HKObjectType& a, const HKObjectType& b) {
    if (auto order = a.identifier_ <=> b.identifier_; order != 0) {
      return order;
    }
    return a.kind_ <=> b.kind_;
  }

 private:
  InternedString identifier_;
  HKObjectKind kind_;
};

}  // namespace velk::platform
