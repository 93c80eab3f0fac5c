// The conversions of the physical document's root; the records themselves are all in the header.
#include "velk/PhysicalDocument.h"

namespace velk {

nlohmann::json VelkPhysicalData::getDictionary() const {
  return dictionaryOf(*this);
}

std::optional<std::string> VelkPhysicalData::getData() const {
  return jsonTextOf(*this);
}

Result<VelkPhysicalData> VelkPhysicalData::fromDictionary(const nlohmann::json& dictionary) {
  return decodeRecord<VelkPhysicalData>(dictionary);
}

Result<VelkPhysicalData> VelkPhysicalData::fromData(std::string_view data) {
  return decodeRecord<VelkPhysicalData>(data);
}

}  // namespace velk
