#include "extraction/ExtractionLastDateStorage.h"

#include <string>

#include "velk/DebugOutput.h"
#include "velk/Device.h"

namespace velk {
namespace {

std::shared_ptr<platform::UserDefaults> standardUserDefaults() {
  auto defaults = platform::Device::current()->userDefaults();
  if (!defaults) {
    platform::fatalError("the installed platform::Device has no user defaults");
  }
  return defaults;
}

}  // namespace

ExtractionLastDateStorage::ExtractionLastDateStorage() : defualts(standardUserDefaults()) {}

std::optional<Date> ExtractionLastDateStorage::readLastDate(VelkDataType kind) const {
  return defualts->date(std::string(rawValue(kind)));
}

void ExtractionLastDateStorage::storeLastDate(Date date, VelkDataType kind) const {
  defualts->setDate(std::string(rawValue(kind)), date);
}

}  // namespace velk
