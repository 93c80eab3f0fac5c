// The filling of the sleep document from one night's totals.
#pragma once

#include "extraction/VelkDateFormatter.h"
#include "sleep/SleepDataDuration.h"
#include "velk/SleepDocument.h"

namespace velk {

/// The summaries of one night. Dates stay dates (the encoder writes them as numbers), so none of
/// the formatters is used; they are handed in as every document builder receives them. Only the
/// metadata and the durations are filled: the night's date and the metadata's moment are the
/// night's end instant, and the score, heart-rate, temperature and breathing sections are left
/// with every value absent.
VelkSleepSummaries makeSleepSummaries(const SleepDataDuration& duration,
                                      const VelkDateFormatter& formatters);

}  // namespace velk
