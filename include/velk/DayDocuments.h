// The documents of one day, in their dictionary form, asked of an extraction manager all kinds at
// once, as a host asks, and awaited on the calling thread: the thread drives the installed
// device's main queue until every answer is there, so it must be the host's main thread (the one
// that installed the device) and no other thread may drive that queue meanwhile. The tool's
// `summary` command and the language bindings print or return exactly these dictionaries.
#pragma once

#include <vector>

#include <nlohmann/json.hpp>

#include "velk/Date.h"
#include "velk/Result.h"
#include "velk/VelkDataType.h"
#include "velk/VelkExtractionManager.h"

namespace velk::table {

/// One answer per kind, in the order of `kinds`: the dictionary (an empty object for a night whose
/// store answered without samples, and for a document that cannot be converted), or the error
/// the library answered with. A kind that got no answer within kAnswerTimeout fails with
/// TableError::noAnswer, and so does every kind after it (they are not waited for). The manager
/// is the caller's: a host that keeps one for many days passes the same one each time.
std::vector<Result<nlohmann::json>> askDay(VelkExtractionManager& manager,
                                           const std::vector<VelkDataType>& kinds, Date date);

/// The TableError::noAnswer error.
Error noAnswerError();

}  // namespace velk::table
