// What the three summary documents share: the demographic record that every metadata record
// lists, and the empty record that stands for data without a schema.
//
// Every document record here and in SleepDocument.h, PhysicalDocument.h and BodyDocument.h is a
// plain aggregate: it is built memberwise in field order, compared with ==, and coded to and from
// JSON through its key table (velk/Codable.h). Whole numbers are std::int64_t in the unit
// that their key names; points in time are velk::Date.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>

#include "velk/Codable.h"

namespace velk {

/// Who the user is, as far as a document knows it. Every field is optional; a document that knows
/// nothing still lists one of these, and it encodes as eleven nulls.
struct UserDemographic {
  std::optional<std::string> sex;
  std::optional<std::string> gender;
  /// Text, not a Date: whoever fills it formats the day first ("yyyy-MM-dd").
  std::optional<std::string> dateOfBirth;
  std::optional<std::int64_t> age;
  std::optional<std::string> country;
  std::optional<std::string> state;
  std::optional<std::string> city;
  std::optional<std::string> ethnicity;
  std::optional<std::string> income;
  std::optional<std::string> maritalStatus;
  std::optional<std::string> education;

  bool operator==(const UserDemographic&) const = default;

  static constexpr auto fields = std::tuple{
      field("sex", &UserDemographic::sex),
      field("gender", &UserDemographic::gender),
      field("date_of_birth", &UserDemographic::dateOfBirth),
      field("age", &UserDemographic::age),
      field("country", &UserDemographic::country),
      field("state", &UserDemographic::state),
      field("city", &UserDemographic::city),
      field("ethnicity", &UserDemographic::ethnicity),
      field("income", &UserDemographic::income),
      field("marital_status", &UserDemographic::maritalStatus),
      field("education", &UserDemographic::education),
  };
};

/// A place for data without a schema. It has no fields: present, it encodes as {}, and it decodes
/// from any object.
struct NonStructuredData {
  bool operator==(const NonStructuredData&) const = default;

  static constexpr auto fields = std::tuple{};
};

}  // namespace velk
