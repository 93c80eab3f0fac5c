// The library's entry point for extraction: the three summary documents of a calendar day, typed or
// as JSON-ready dictionaries, and the dates of the last extractions.
//
// The manager only wires. Each request goes, with the caller's date unchanged, to the owner of that
// summary (the sleep repository, the physical provider, the body provider), reached only through
// the owner interfaces of SummaryOwners.h. The completion runs where the owner calls it: the sleep
// summary on the health store's background queue, the physical and body summaries on the main
// queue. Hosts that update an interface from a sleep completion move to their main queue first.
//
// The manager holds its owners strongly and the owners' store continuations hold them weakly, so
// releasing the manager while a request is out drops that request's answer; each owner says
// whether its completion is then still called (the sleep summary: never after a successful read,
// always with a failed one).
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <nlohmann/json.hpp>

#include "velk/Date.h"
#include "velk/Error.h"
#include "velk/Result.h"
#include "velk/SummaryOwners.h"
#include "velk/VelkDataType.h"

namespace velk {

class ExtractionLastDateStorage;

class VelkExtractionManager {
 public:
  using SleepCompletion = SleepSummaryOwner::Completion;
  using PhysicalCompletion = PhysicalSummaryOwner::Completion;
  using BodyCompletion = BodySummaryOwner::Completion;
  /// The dictionary forms: exactly one of the two arguments is present.
  using DictionaryCompletion =
      std::function<void(std::optional<nlohmann::json> dictionary, std::optional<Error> error)>;

  /// The three owners a manager forwards to, for hosts (and tests) that bring their own.
  struct Owners {
    std::shared_ptr<SleepSummaryOwner> sleepRepository;
    std::shared_ptr<PhysicalSummaryOwner> physicalProvider;
    std::shared_ptr<BodySummaryOwner> bodyProvider;
  };

  /// Builds, in this order, a sleep repository, a physical provider, a body provider and a
  /// last-date storage over the device's standard user defaults. Needs an installed device.
  VelkExtractionManager();

  /// A manager over owners built elsewhere; each must be present.
  explicit VelkExtractionManager(Owners owners);

  ~VelkExtractionManager();
  VelkExtractionManager(const VelkExtractionManager&) = delete;
  VelkExtractionManager& operator=(const VelkExtractionManager&) = delete;

  // Typed forms. The completion is called exactly once (unless the manager is released while the
  // owner's request is out; see above).
  void getSleepSummay(Date date, SleepCompletion completion);
  void getPhysicalSummary(Date date, PhysicalCompletion completion);
  void getBodySummary(Date date, BodyCompletion completion);

  // Dictionary forms: a failure passes its error on unchanged; a document becomes its dictionary;
  // a document that cannot be converted, and an absent sleep document, become an empty dictionary
  // (never an error). The conversion runs on the queue of the typed completion.
  void getSleepSummayObjc(Date date, DictionaryCompletion completion);
  void getPhysicalSummaryObjc(Date date, DictionaryCompletion completion);
  void getBodySummaryObjc(Date date, DictionaryCompletion completion);

  /// The stored date of the last extraction of `kind`. Synchronous; never starts a query.
  std::optional<Date> getLastExtractionDate(VelkDataType kind) const;

  // The published per-kind getters. All three read the SLEEP entry; hosts rely on this, so it is
  // kept. getLastExtractionDate(kind) is the one that honours its kind.
  std::optional<Date> getLastExtractionDateOfSleep() const;
  std::optional<Date> getLastExtractionDateOfPhysical() const;
  std::optional<Date> getLastExtractionDateOfBody() const;

 private:
  // Set once in the constructor, never replaced.
  std::shared_ptr<SleepSummaryOwner> sleepRepository;
  std::shared_ptr<PhysicalSummaryOwner> physicalProvider;
  std::shared_ptr<BodySummaryOwner> bodyProvider;
  std::unique_ptr<const ExtractionLastDateStorage> dateExtraction;
};

}  // namespace velk
