// What the physical reads have found so far, and the summaries made from it.
//
// The builder belongs to its provider for the provider's whole life and is never cleared: a value
// stored by one request stays, and a later request whose read of that value fails reports it
// again. Hosts see this carry-over; it is kept on purpose.
//
// Each read writes only its own field, from the health store's queue; the summaries are built on
// the main queue once every read has answered. One small lock around the fields keeps two requests
// that run at the same time on one provider (which may overwrite each other's values, as they
// would on the phone) free of data races.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>

#include "extraction/VelkDateFormatter.h"
#include "physical/HeartRateRecords.h"
#include "physical/VelkCalories.h"
#include "velk/Date.h"
#include "velk/PhysicalDocument.h"

namespace velk {

class VelkPhysicalDataBuilder {
 public:
  VelkPhysicalDataBuilder() = default;
  VelkPhysicalDataBuilder(const VelkPhysicalDataBuilder&) = delete;
  VelkPhysicalDataBuilder& operator=(const VelkPhysicalDataBuilder&) = delete;

  // Each field: read, replace, and change in place (under the builder's lock).
  std::optional<VelkCalories> caloriesData() const { return get(caloriesData_); }
  void setCaloriesData(std::optional<VelkCalories> value) { set(caloriesData_, std::move(value)); }
  void modifyCaloriesData(const std::function<void(std::optional<VelkCalories>&)>& change) {
    modify(caloriesData_, change);
  }

  std::optional<std::int64_t> totalSteps() const { return get(totalSteps_); }
  void setTotalSteps(std::optional<std::int64_t> value) { set(totalSteps_, value); }
  void modifyTotalSteps(const std::function<void(std::optional<std::int64_t>&)>& change) {
    modify(totalSteps_, change);
  }

  std::optional<VelkHRVData> hrvData() const { return get(hrvData_); }
  void setHrvData(std::optional<VelkHRVData> value) { set(hrvData_, std::move(value)); }
  void modifyHrvData(const std::function<void(std::optional<VelkHRVData>&)>& change) {
    modify(hrvData_, change);
  }

  std::optional<VelkHeartRateData> heartRateData() const { return get(heartRateData_); }
  void setHeartRateData(std::optional<VelkHeartRateData> value) {
    set(heartRateData_, std::move(value));
  }
  void modifyHeartRateData(const std::function<void(std::optional<VelkHeartRateData>&)>& change) {
    modify(heartRateData_, change);
  }

  std::optional<VelkRestingHrData> restingHrData() const { return get(restingHrData_); }
  void setRestingHrData(std::optional<VelkRestingHrData> value) {
    set(restingHrData_, std::move(value));
  }
  void modifyRestingHrData(const std::function<void(std::optional<VelkRestingHrData>&)>& change) {
    modify(restingHrData_, change);
  }

  /// The summaries of the day of `date` from the fields as they are now. Steps, the two calorie
  /// parts, the heart-rate figures and the HRV average (truncated toward zero here, and only here)
  /// are filled; everything else, the calorie total and every granular list included, is absent.
  VelkPhysicalSummaries buildPhysicalSummaries(Date date) const;

  const VelkDateFormatter dateProvider;

 private:
  template <class T>
  std::optional<T> get(const std::optional<T>& field) const {
    std::lock_guard lock(mutex_);
    return field;
  }
  template <class T>
  void set(std::optional<T>& field, std::optional<T> value) {
    std::lock_guard lock(mutex_);
    field = std::move(value);
  }
  template <class T>
  void modify(std::optional<T>& field, const std::function<void(std::optional<T>&)>& change) {
    std::lock_guard lock(mutex_);
    change(field);
  }

  mutable std::mutex mutex_;
  std::optional<VelkCalories> caloriesData_;
  std::optional<std::int64_t> totalSteps_;
  std::optional<VelkHRVData> hrvData_;
  std::optional<VelkHeartRateData> heartRateData_;
  std::optional<VelkRestingHrData> restingHrData_;
};

}  // namespace velk
