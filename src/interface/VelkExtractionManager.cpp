#include "velk/VelkExtractionManager.h"

#include <utility>

#include "body/VelkBodyProvider.h"
#include "extraction/ExtractionLastDateStorage.h"
#include "physical/VelkPhysicalProvider.h"
#include "sleep/SleepRepository.h"
#include "velk/BodyDocument.h"
#include "velk/DebugOutput.h"
#include "velk/PhysicalDocument.h"
#include "velk/SleepDocument.h"

namespace velk {

namespace {

// The three owners of the plain constructor, built in this order.
VelkExtractionManager::Owners makeOwners() {
  return VelkExtractionManager::Owners{
      .sleepRepository = SleepRepository::make(),
      .physicalProvider = std::make_shared<VelkPhysicalProvider>(),
      .bodyProvider = std::make_shared<VelkBodyProvider>(),
  };
}

template <class Owner>
std::shared_ptr<Owner> required(std::shared_ptr<Owner> owner, const char* name) {
  if (owner == nullptr) {
    platform::fatalError(std::string("VelkExtractionManager built without a ") + name);
  }
  return owner;
}

// The dictionary form of a typed result. A conversion fault yields an empty dictionary, never an
// error: getDictionary() already turns every encoding or parsing failure into one.
template <class Document>
void deliverDictionary(const Result<Document>& result,
                       const VelkExtractionManager::DictionaryCompletion& completion) {
  if (result.isFailure()) {
    completion(std::nullopt, result.error());
    return;
  }
  completion(result.value().getDictionary(), std::nullopt);
}

}  // namespace

VelkExtractionManager::VelkExtractionManager() : VelkExtractionManager(makeOwners()) {}

VelkExtractionManager::VelkExtractionManager(Owners owners)
    : sleepRepository(required(std::move(owners.sleepRepository), "sleep repository")),
      physicalProvider(required(std::move(owners.physicalProvider), "physical provider")),
      bodyProvider(required(std::move(owners.bodyProvider), "body provider")),
      dateExtraction(std::make_unique<const ExtractionLastDateStorage>()) {}

VelkExtractionManager::~VelkExtractionManager() = default;

void VelkExtractionManager::getSleepSummay(Date date, SleepCompletion completion) {
  sleepRepository->getSleepData(date, std::move(completion));
}

void VelkExtractionManager::getPhysicalSummary(Date date, PhysicalCompletion completion) {
  physicalProvider->getPhysicalData(date, std::move(completion));
}

void VelkExtractionManager::getBodySummary(Date date, BodyCompletion completion) {
  bodyProvider->getBodySummary(date, std::move(completion));
}

void VelkExtractionManager::getSleepSummayObjc(Date date, DictionaryCompletion completion) {
  sleepRepository->getSleepData(
      date, [completion = std::move(completion)](Result<std::optional<VelkSleepData>> result) {
        if (result.isFailure()) {
          completion(std::nullopt, result.error());
          return;
        }
        // A night without a sample list is a success, handed over as an empty dictionary.
        const std::optional<VelkSleepData>& document = result.value();
        completion(document ? document->getDictionary() : nlohmann::json::object(), std::nullopt);
      });
}

void VelkExtractionManager::getPhysicalSummaryObjc(Date date, DictionaryCompletion completion) {
  physicalProvider->getPhysicalData(
      date, [completion = std::move(completion)](const Result<VelkPhysicalData>& result) {
        deliverDictionary(result, completion);
      });
}

void VelkExtractionManager::getBodySummaryObjc(Date date, DictionaryCompletion completion) {
  bodyProvider->getBodySummary(
      date, [completion = std::move(completion)](const Result<VelkBodyData>& result) {
        deliverDictionary(result, completion);
      });
}

std::optional<Date> VelkExtractionManager::getLastExtractionDate(VelkDataType kind) const {
  return dateExtraction->readLastDate(kind);
}

std::optional<Date> VelkExtractionManager::getLastExtractionDateOfSleep() const {
  return dateExtraction->readLastDate(VelkDataType::sleepSummary);
}

// Reads the sleep entry on purpose: the published behaviour of this getter.
std::optional<Date> VelkExtractionManager::getLastExtractionDateOfPhysical() const {
  return dateExtraction->readLastDate(VelkDataType::sleepSummary);
}

// Reads the sleep entry on purpose: the published behaviour of this getter.
std::optional<Date> VelkExtractionManager::getLastExtractionDateOfBody() const {
  return dateExtraction->readLastDate(VelkDataType::sleepSummary);
}

}  // namespace velk
