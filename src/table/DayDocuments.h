// The documents of one day, in their dictionary form, asked of an extraction manager all kinds at
// once, as a host asks, and awaited on the calling thread (AwaitedAnswer.h).
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
/// TableError::noAnswer, and so does every kind after it (they are not waited for).
std::vector<Result<nlohmann::json>> askDay(VelkExtractionManager& manager,
                                           const std::vector<VelkDataType>& kinds, Date date);

/// The TableError::noAnswer error.
Error noAnswerError();

}  // namespace velk::table
