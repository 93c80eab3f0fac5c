// Holds the step sample provider; the physical summary reads the day's steps through it.
#pragma once

#include <memory>

#include "physical/VelkStepSampleProvider.h"

namespace velk {

class VelkStepsProvider {
 public:
  VelkStepsProvider() : velkStepSampleProvider(std::make_shared<VelkStepSampleProvider>()) {}

  std::shared_ptr<VelkStepSampleProvider> velkStepSampleProvider;
};

}  // namespace velk
