#include "sleep/SleepRepository.h"

#include <utility>

#include "extraction/VelkDateFormatter.h"
#include "sleep/SleepSummaries.h"
#include "velk/SleepDocument.h"

namespace velk {

std::shared_ptr<SleepRepository> SleepRepository::make() {
  // The constructor is protected so that every repository is shared: its continuations hold it
  // through a weak pointer, which needs a shared owner.
  return std::shared_ptr<SleepRepository>(new SleepRepository());
}

SleepRepository::SleepRepository()
    : sleepSampleProvider(std::make_unique<SleepSampleProvider>()),
      sleepAnalysisBuilder(std::make_unique<SleepAnalysisBuilder>()),
      sleepDataDurationBuilder(std::make_unique<SleepDataDurationBuilder>()),
      lastDateStorage(std::make_unique<ExtractionLastDateStorage>()) {}

void SleepRepository::getSleepData(Date date, Completion completion) {
  std::weak_ptr<SleepRepository> weakSelf = weak_from_this();
  sleepSampleProvider->getSleepSamples(
      date, [weakSelf = std::move(weakSelf), date,
             completion = std::move(completion)](Result<std::optional<Samples>> samples) {
        if (samples.isFailure()) {
          // Passed on whether or not the repository still exists: nothing of it is needed.
          completion(Result<std::optional<VelkSleepData>>::failure(samples.error()));
          return;
        }
        const std::shared_ptr<SleepRepository> self = weakSelf.lock();
        if (self == nullptr) {
          return;  // released while the query was out: the answer is dropped
        }
        // The date is stored before the samples are looked at, so that a request that ends
        // without a document still moves the last extraction date.
        self->lastDateStorage->storeLastDate(date, VelkDataType::sleepSummary);
        self->buildSleepData(samples.value(), completion);
      });
}

void SleepRepository::buildSleepData(const std::optional<Samples>& samples,
                                     const Completion& completion) const {
  if (!samples) {
    completion(Result<std::optional<VelkSleepData>>::success(std::nullopt));
    return;
  }
  const std::vector<SleepAnalysis> analyses = sleepAnalysisBuilder->buildSleepAnalyses(*samples);
  const SleepDataDuration duration = sleepDataDurationBuilder->buildSleepDataDuration(analyses);
  VelkSleepData document;
  document.dataStructure = "sleep_health";
  document.version = 1;
  document.summaries = makeSleepSummaries(duration, VelkDateFormatter());
  completion(Result<std::optional<VelkSleepData>>::success(std::move(document)));
}

}  // namespace velk
