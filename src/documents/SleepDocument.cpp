// The conversions of the sleep document's root; the records themselves are all in the header.
#include "velk/SleepDocument.h"

namespace velk {

nlohmann::json VelkSleepData::getDictionary() const {
  return dictionaryOf(*this);
}

std::optional<std::string> VelkSleepData::getData() const {
  return jsonTextOf(*this);
}

Result<VelkSleepData> VelkSleepData::fromDictionary(const nlohmann::json& dictionary) {
  return decodeRecord<VelkSleepData>(dictionary);
}

Result<VelkSleepData> VelkSleepData::fromData(std::string_view data) {
  return decodeRecord<VelkSleepData>(data);
}

}  // namespace velk
