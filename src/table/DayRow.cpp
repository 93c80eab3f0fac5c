#include "table/DayRow.h"

#include <algorithm>
#include <string>

#include "velk/Device.h"

namespace velk::table {
namespace {

using nlohmann::json;

// Dates in the device's zone, written the same whatever the device's language.
constexpr const char* kFormatLocale = "en_US_POSIX";

json::json_pointer pointer(std::string_view path) {
  return json::json_pointer(std::string(path));
}

const json* find(const json& document, const json::json_pointer& path) {
  return document.contains(path) ? &document.at(path) : nullptr;
}

const std::optional<json>& documentOf(const DayDocuments& documents, VelkDataType kind) {
  return documents.at(static_cast<std::size_t>(kind));
}

}  // namespace

DayRowMaker::DayRowMaker(std::vector<Column> columns)
    : columns_(std::move(columns)),
      dayFormat_("yyyy-MM-dd", platform::Device::current()->timeZone(), kFormatLocale),
      momentFormat_("yyyy-MM-dd'T'HH:mm:ssxxx", platform::Device::current()->timeZone(),
                    kFormatLocale) {
  for (const Column& column : columns_) {
    paths_.push_back(column.source == ColumnSource::document ? pointer(column.path)
                                                             : json::json_pointer());
  }
  for (const VelkDataType kind : allVelkDataTypes) {
    sourcePaths_.push_back(pointer(sourcesPath(kind)));
  }
}

bool DayRowMaker::hasData(VelkDataType kind, const json& document) {
  // The integer document columns of every kind, with their paths parsed once.
  static const auto witnesses = [] {
    std::vector<std::pair<VelkDataType, json::json_pointer>> all;
    for (const Column& column : columns()) {
      if (column.source == ColumnSource::document && column.type == CellType::integer) {
        all.emplace_back(*column.kind, pointer(column.path));
      }
    }
    return all;
  }();
  return std::any_of(witnesses.begin(), witnesses.end(), [&](const auto& witness) {
    const json* value = witness.first == kind ? find(document, witness.second) : nullptr;
    return value != nullptr && value->is_number() && *value != 0;
  });
}

json DayRowMaker::sourcesCell(const std::array<bool, 3>& present,
                              const DayDocuments& documents) const {
  // Each name once, in the order of the kinds.
  std::vector<std::string> names;
  for (std::size_t kind = 0; kind < present.size(); ++kind) {
    const json* list = present[kind] ? find(*documents[kind], sourcePaths_[kind]) : nullptr;
    if (list == nullptr || !list->is_array()) {
      continue;
    }
    for (const json& name : *list) {
      if (name.is_string() &&
          std::find(names.begin(), names.end(), name.get<std::string>()) == names.end()) {
        names.push_back(name.get<std::string>());
      }
    }
  }
  if (names.empty()) {
    return nullptr;
  }
  std::string joined = names.front();
  for (std::size_t i = 1; i < names.size(); ++i) {
    joined += "; " + names[i];
  }
  return joined;
}

std::vector<json> DayRowMaker::row(Date day, const DayDocuments& documents) const {
  std::array<bool, 3> present{};
  for (std::size_t kind = 0; kind < present.size(); ++kind) {
    present[kind] = documents[kind] && hasData(static_cast<VelkDataType>(kind), *documents[kind]);
  }
  std::vector<json> cells;
  cells.reserve(columns_.size());
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    const Column& column = columns_[i];
    json cell;  // null: empty
    switch (column.source) {
      case ColumnSource::day:
        cell = dayFormat_.string(day);
        break;
      case ColumnSource::presence:
        if (documentOf(documents, *column.kind)) {
          cell = present[static_cast<std::size_t>(*column.kind)];
        }
        break;
      case ColumnSource::sources:
        cell = sourcesCell(present, documents);
        break;
      case ColumnSource::document: {
        if (!present[static_cast<std::size_t>(*column.kind)]) {
          break;
        }
        const json* value = find(*documentOf(documents, *column.kind), paths_[i]);
        if (value == nullptr || !value->is_number()) {
          break;
        }
        if (column.type == CellType::dateTime) {
          cell = momentFormat_.string(Date::fromReferenceSeconds(value->get<double>()));
        } else {
          cell = *value;
        }
        break;
      }
    }
    cells.push_back(std::move(cell));
  }
  return cells;
}

}  // namespace velk::table
