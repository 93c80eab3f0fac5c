#include "sleep/SleepSummaries.h"

namespace velk {

VelkSleepSummaries makeSleepSummaries(const SleepDataDuration& duration,
                                      const VelkDateFormatter& /*formatters*/) {
  VelkSleepSummaries summaries;
  SleepRelatedData& night = summaries.sleepRelatedData;

  night.metadata = VelkSleepMetadata{
      .datetime = duration.end,
      .userID = std::nullopt,
      .sourcesOfData = {"Apple Health"},
      .userDemographics = {UserDemographic{}},  // one record, every field absent
      .sleepHealthScore = std::nullopt,
  };
  night.sleepDurationRelatedData = SleepDurationRelatedData{
      .sleepStartDatetime = duration.start,
      .sleepEndDatetime = duration.end,
      .sleepDate = duration.end,
      .sleepDurationSeconds = duration.duration,
      .timeInBedSeconds = duration.timeInBed,
      .lightSleepDurationSeconds = duration.sleepLightDuration,
      .remSleepDurationSeconds = duration.sleepRemDuration,
      .deepSleepDurationSeconds = duration.sleepDeepDuration,
      .timeToFallAsleepSeconds = duration.sleepFallDuration,
      .timeAwakeDuringSleepSeconds = duration.sleepAwakeDuration,
  };
  // Scores, heart rate, temperature, breathing and the non-structured list stay absent: their
  // default values have every optional empty and every list absent rather than empty.
  return summaries;
}

}  // namespace velk
