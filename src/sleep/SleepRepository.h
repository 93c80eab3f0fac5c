// Runs one sleep request from date to document: fetch the night's samples, translate them, total
// them, fill the document, and record the requested date as the last sleep extraction.
//
// The repository is shared (make()), and the continuation it hands to the store holds it weakly.
// When the repository is gone by the time the store answers, a successful answer is dropped
// without a word (nothing stored, the completion never called), while a failed one still reaches
// the completion. Hosts that keep the manager alive never see the difference.
#pragma once

#include <memory>
#include <optional>

#include "extraction/ExtractionLastDateStorage.h"
#include "sleep/SleepAnalysisBuilder.h"
#include "sleep/SleepDataDurationBuilder.h"
#include "sleep/SleepSampleProvider.h"
#include "velk/Date.h"
#include "velk/SummaryOwners.h"

namespace velk {

class SleepRepository : public SleepSummaryOwner,
                        public std::enable_shared_from_this<SleepRepository> {
 public:
  using Samples = SleepSampleProvider::Samples;

  /// A repository with collaborators of its own: a sample provider with its own store access, the
  /// two builders and a last-date storage over the device's standard user defaults.
  static std::shared_ptr<SleepRepository> make();

  SleepRepository(const SleepRepository&) = delete;
  SleepRepository& operator=(const SleepRepository&) = delete;

  /// Completes on the store's callback queue: success with the night's document, success with no
  /// document when the store gave no sample list, or failure with the store's error (passed on
  /// unchanged). The two early failures (no sleep type, no predicate) complete at once on the
  /// caller's thread. Every successful answer first stores `date`, exactly as given, as the last
  /// sleep extraction; a failed one leaves the stored date alone.
  void getSleepData(Date date, Completion completion) override;

  /// The second half of a request: no samples give no document; any list (also an empty one, or
  /// one that the source filter empties) gives a document. Calls `completion` before returning.
  virtual void buildSleepData(const std::optional<Samples>& samples,
                              const Completion& completion) const;

 protected:
  SleepRepository();

 private:
  std::unique_ptr<SleepSampleProvider> sleepSampleProvider;
  std::unique_ptr<SleepAnalysisBuilder> sleepAnalysisBuilder;
  std::unique_ptr<SleepDataDurationBuilder> sleepDataDurationBuilder;
  std::unique_ptr<ExtractionLastDateStorage> lastDateStorage;
};

}  // namespace velk
