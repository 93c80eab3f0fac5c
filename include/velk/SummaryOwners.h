// What the extraction manager needs of the three summary owners. The manager reaches them only
// through these interfaces; the sleep repository, the physical provider and the body provider
// implement them.
//
// Owners are held in std::shared_ptr by the manager that built them, and the continuations that an
// owner hands to the health store hold it weakly: releasing the manager while a query is out drops
// that query's answer (each owner says whether its completion is then still called).
#pragma once

#include <functional>
#include <optional>

#include "velk/Date.h"
#include "velk/Result.h"

namespace velk {

struct VelkSleepData;
struct VelkPhysicalData;
struct VelkBodyData;

/// Builds the sleep summary. Completes on the health store's queue (the two early failures, on
/// the caller's thread before returning). Success with no document is a legal answer.
class SleepSummaryOwner {
 public:
  using Completion = std::function<void(Result<std::optional<VelkSleepData>>)>;
  virtual ~SleepSummaryOwner() = default;
  virtual void getSleepData(Date date, Completion completion) = 0;
};

/// Builds the physical summary. Completes on the main queue.
class PhysicalSummaryOwner {
 public:
  using Completion = std::function<void(Result<VelkPhysicalData>)>;
  virtual ~PhysicalSummaryOwner() = default;
  virtual void getPhysicalData(Date date, Completion completion) = 0;
};

/// Builds the body summary. Completes on the main queue, always with success.
class BodySummaryOwner {
 public:
  using Completion = std::function<void(Result<VelkBodyData>)>;
  virtual ~BodySummaryOwner() = default;
  virtual void getBodySummary(Date date, Completion completion) = 0;
};

}  // namespace velk
