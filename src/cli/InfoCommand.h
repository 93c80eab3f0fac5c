// `velk info`: what the data source holds, read through the installed device's health database
// as the library reads it: the period covered, each type's samples and days, each source with the
// bundle identifier it was given, whether the sleep rules read it and its place in the day-sum
// order, the characteristics, and the records that the library's rules leave out, with why.
#pragma once

#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

namespace velk::cli {

/// The description of the installed device's data, as JSON (docs/cli.md lists the keys). Days
/// are calendar days in the device's zone; the sleep value rule follows its OS version.
nlohmann::json describeHealthData();

/// `velk info [--format json|text]`
int runInfo(const std::string& format, std::ostream& out);

}  // namespace velk::cli
