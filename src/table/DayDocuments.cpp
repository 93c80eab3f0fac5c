#include "velk/DayDocuments.h"

#include <memory>
#include <optional>
#include <string>

#include "table/AwaitedAnswer.h"
#include "velk/DayTable.h"

namespace velk::table {
namespace {

using DictionaryAnswer = Result<nlohmann::json>;

}  // namespace

Error noAnswerError() {
  return Error(
      kTableErrorDomain, static_cast<std::int64_t>(TableError::noAnswer),
      "the library gave no answer within " + std::to_string(kAnswerTimeout.count()) + " s");
}

std::vector<Result<nlohmann::json>> askDay(VelkExtractionManager& manager,
                                           const std::vector<VelkDataType>& kinds, Date date) {
  std::vector<std::shared_ptr<AwaitedAnswer<DictionaryAnswer>>> pending;
  for (const VelkDataType kind : kinds) {
    auto answer = std::make_shared<AwaitedAnswer<DictionaryAnswer>>();
    auto completion = [answer](std::optional<nlohmann::json> dictionary,
                               std::optional<Error> error) {
      answer->set(error ? DictionaryAnswer::failure(std::move(*error))
                        : DictionaryAnswer::success(
                              std::move(dictionary).value_or(nlohmann::json::object())));
    };
    switch (kind) {
      case VelkDataType::sleepSummary:
        manager.getSleepSummayObjc(date, completion);
        break;
      case VelkDataType::physicalSummary:
        manager.getPhysicalSummaryObjc(date, completion);
        break;
      case VelkDataType::bodySummary:
        manager.getBodySummaryObjc(date, completion);
        break;
    }
    pending.push_back(std::move(answer));
  }
  std::vector<DictionaryAnswer> answers;
  bool timedOut = false;
  for (const auto& answer : pending) {
    timedOut = timedOut || !answer->await();
    answers.push_back(timedOut ? DictionaryAnswer::failure(noAnswerError()) : answer->take());
  }
  return answers;
}

}  // namespace velk::table
