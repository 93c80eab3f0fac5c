#include "sleep/SleepDataDuration.h"

#include "healthstore/TruncatedInteger.h"

namespace velk {

SleepDataDuration::SleepDataDuration(Date startDate, Date endDate, double durationSeconds,
                                     double timeInBedSeconds, double lightSeconds,
                                     double remSeconds, double deepSeconds, double fallSeconds,
                                     double awakeSeconds)
    : start(startDate),
      end(endDate),
      duration(truncatedInt64(durationSeconds)),
      timeInBed(truncatedInt64(timeInBedSeconds)),
      sleepLightDuration(truncatedInt64(lightSeconds)),
      sleepRemDuration(truncatedInt64(remSeconds)),
      sleepDeepDuration(truncatedInt64(deepSeconds)),
      sleepFallDuration(truncatedInt64(fallSeconds)),
      sleepAwakeDuration(truncatedInt64(awakeSeconds)) {}

}  // namespace velk
