// The conversions of the body document's root; the records themselves are all in the header.
#include "velk/BodyDocument.h"

namespace velk {

nlohmann::json VelkBodyData::getDictionary() const {
  return dictionaryOf(*this);
}

std::optional<std::string> VelkBodyData::getData() const {
  return jsonTextOf(*this);
}

Result<VelkBodyData> VelkBodyData::fromDictionary(const nlohmann::json& dictionary) {
  return decodeRecord<VelkBodyData>(dictionary);
}

Result<VelkBodyData> VelkBodyData::fromData(std::string_view data) {
  return decodeRecord<VelkBodyData>(data);
}

}  // namespace velk
