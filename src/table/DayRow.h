// One row of the day table, made from the dictionaries of one day's documents.
#pragma once

#include <array>
#include <optional>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/DateFormatter.h"
#include "velk/Date.h"
#include "velk/DayTable.h"

namespace velk::table {

/// The key path of metadata.sources_of_data in the dictionary of `kind`'s document.
std::string_view sourcesPath(VelkDataType kind);

/// One day's dictionaries by kind (in VelkDataType order); a kind not asked is absent. A sleep
/// night whose store answered without samples is an empty object.
using DayDocuments = std::array<std::optional<nlohmann::json>, 3>;

class DayRowMaker {
 public:
  /// Writes dates in the device's zone, which it reads once, here (needs an installed device).
  explicit DayRowMaker(std::vector<Column> columns);

  /// The cells of the day asked at `day`, one per column: the values at the columns' key paths,
  /// null where a document holds none or its kind had no data that day (the presence rule of
  /// columns()).
  std::vector<nlohmann::json> row(Date day, const DayDocuments& documents) const;

  /// Whether `kind` had data in `document`, by the presence rule of columns().
  static bool hasData(VelkDataType kind, const nlohmann::json& document);

 private:
  /// The sources named by the documents of the kinds `present`.
  nlohmann::json sourcesCell(const std::array<bool, 3>& present,
                             const DayDocuments& documents) const;

  std::vector<Column> columns_;
  std::vector<nlohmann::json::json_pointer> paths_;        ///< per column; empty for non-documents
  std::vector<nlohmann::json::json_pointer> sourcePaths_;  ///< per kind
  platform::DateFormatter dayFormat_;
  platform::DateFormatter momentFormat_;
};

}  // namespace velk::table
