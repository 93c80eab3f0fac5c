// The report: the day table as one self-contained HTML page that a person opens in a browser.
#pragma once

#include <ostream>
#include <string>

#include "velk/DayTable.h"

namespace velk::report {

/// Writes the report page of `table`, whose dates are in `timeZone`: the period, the zone, the
/// sources found and the days with data of each kind, then one chart per measure (sleep by stage
/// with time in bed; steps; active and basal energy; heart rate minimum to maximum with average
/// and resting; HRV; weight), each with a title, axis units, the day's values on hover and a
/// table for screen readers. The page needs nothing beyond itself: Chart.js is part of it (as the
/// build found it installed, licence notice kept), the table is a JSON data island that the page's
/// script reads, and its content security policy lets no request leave it.
void writeReport(const table::DayTable& table, const std::string& timeZone, std::ostream& out);

}  // namespace velk::report
