// Turns the raw body values into the body document's summaries: metadata with the one user
// demographic, and the body measurements. Everything the library does not measure stays absent.
#pragma once

#include "body/VelkAppleBodyData.h"
#include "extraction/VelkDateFormatter.h"
#include "velk/BodyDocument.h"
#include "velk/Date.h"
#include "velk/DocumentConventions.h"

namespace velk {

struct VelkBodySummariesBuilder {
  VelkAppleBodyData appleBodyData;
  VelkDateFormatter dateProvider;
  Date dateFetched;  ///< the requested date; it becomes the metadata's datetime unchanged

  VelkBodySummaries build() const;

  /// The user as the body summary knows them. The biological sex goes into `gender` (not `sex`),
  /// the date of birth is written as its local day ("yyyy-MM-dd"), and the age is counted in whole
  /// Gregorian years up to the device's current moment (not the requested date).
  UserDemographic makeUserDemographic() const;

  /// Weight and height from the newest sample of each, truncated toward zero to whole kilograms
  /// and centimetres (72.9 kg is 72). A value that is not finite or does not fit a 64-bit integer
  /// stops the process rather than produce a number.
  Body makeBody() const;
};

}  // namespace velk
