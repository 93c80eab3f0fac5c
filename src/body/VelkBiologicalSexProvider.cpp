#include "body/VelkBiologicalSexProvider.h"

#include "platform/HKHealthStore.h"

namespace velk {

std::string VelkBiologicalSexProvider::word(std::int64_t biologicalSex) {
  switch (biologicalSex) {
    case platform::HKBiologicalSexFemale:
      return "female";
    case platform::HKBiologicalSexMale:
      return "male";
    case platform::HKBiologicalSexOther:
      return "other";
    default:
      return "notSet";
  }
}

Result<std::string> VelkBiologicalSexProvider::getBiologicalSex() const {
  auto answer = appleHealthProvider.healthStore->biologicalSex();
  if (answer.isFailure()) {
    return Result<std::string>::failure(answer.error());
  }
  return Result<std::string>::success(word(answer.value().biologicalSex()));
}

}  // namespace velk
