#include "platform/NSPredicate.h"

#include <algorithm>
#include <cstdio>
#include <variant>

#include "platform/HKSample.h"
#include "platform/StoredSample.h"

namespace velk::platform {

namespace {

struct DateRange {
  std::optional<Date> start;
  std::optional<Date> end;
  HKQueryOptions options;
};

struct MetadataNotYes {
  std::string key;
};

bool has(HKQueryOptions options, HKQueryOptions option) {
  return (static_cast<unsigned>(options) & static_cast<unsigned>(option)) != 0;
}

std::string dateText(Date date) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "CAST(%f, \"NSDate\")",
                date.timeIntervalSinceReferenceDate());
  return buffer;
}

}  // namespace

struct NSPredicate::Node {
  std::variant<DateRange, MetadataNotYes, std::vector<NSPredicate>> shape;
};

NSPredicate NSPredicate::metadataValueIsNotYes(std::string key) {
  return NSPredicate(std::make_shared<const Node>(Node{MetadataNotYes{std::move(key)}}));
}

NSPredicate NSCompoundPredicate::andPredicateWithSubpredicates(
    std::vector<NSPredicate> subpredicates) {
  return NSPredicate(
      std::make_shared<const NSPredicate::Node>(NSPredicate::Node{std::move(subpredicates)}));
}

NSPredicate HKQuery::predicateForSamples(std::optional<Date> startDate, std::optional<Date> endDate,
                                         HKQueryOptions options) {
  return NSPredicate(std::make_shared<const NSPredicate::Node>(
      NSPredicate::Node{DateRange{startDate, endDate, options}}));
}

bool NSPredicate::evaluate(const Subject& subject) const {
  if (const auto* range = std::get_if<DateRange>(&node_->shape)) {
    if (range->start) {
      const Date compared = has(range->options, HKQueryOptions::strictStartDate) ? subject.startDate
                                                                                 : subject.endDate;
      if (!(compared >= *range->start)) {
        return false;
      }
    }
    if (range->end) {
      if (!(subject.startDate < *range->end)) {
        return false;
      }
      if (has(range->options, HKQueryOptions::strictEndDate) && !(subject.endDate < *range->end)) {
        return false;
      }
    }
    return true;
  }
  if (const auto* metadata = std::get_if<MetadataNotYes>(&node_->shape)) {
    // Samples carry no metadata but HKWasUserEntered, so any other key is absent, hence "not YES".
    return metadata->key != HKMetadataKeyWasUserEntered || subject.wasUserEntered != true;
  }
  const auto& all = std::get<std::vector<NSPredicate>>(node_->shape);
  return std::all_of(all.begin(), all.end(),
                     [&subject](const NSPredicate& p) { return p.evaluate(subject); });
}

bool NSPredicate::evaluateWithObject(const HKSample& sample) const {
  return evaluate(Subject{sample.startDate(), sample.endDate(), sample.metadataWasUserEntered()});
}

bool NSPredicate::evaluate(const StoredSample& sample) const {
  return evaluate(Subject{sample.start, sample.end, sample.wasUserEntered});
}

NSPredicate::DateBounds NSPredicate::dateBounds() const {
  if (const auto* range = std::get_if<DateRange>(&node_->shape)) {
    return {range->start, range->end};
  }
  DateBounds bounds;
  if (const auto* all = std::get_if<std::vector<NSPredicate>>(&node_->shape)) {
    // Every subpredicate must hold, so the tightest bound of any of them applies.
    for (const NSPredicate& sub : *all) {
      const DateBounds inner = sub.dateBounds();
      if (inner.start && (!bounds.start || *inner.start > *bounds.start)) {
        bounds.start = inner.start;
      }
      if (inner.end && (!bounds.end || *inner.end < *bounds.end)) {
        bounds.end = inner.end;
      }
    }
  }
  return bounds;
}

std::string NSPredicate::predicateFormat() const {
  if (const auto* range = std::get_if<DateRange>(&node_->shape)) {
    std::vector<std::string> clauses;
    if (range->start) {
      const char* field =
          has(range->options, HKQueryOptions::strictStartDate) ? "startDate" : "endDate";
      clauses.push_back(std::string(field) + " >= " + dateText(*range->start));
    }
    if (range->end) {
      clauses.push_back("startDate < " + dateText(*range->end));
      if (has(range->options, HKQueryOptions::strictEndDate)) {
        clauses.push_back("endDate < " + dateText(*range->end));
      }
    }
    if (clauses.empty()) {
      return "TRUEPREDICATE";
    }
    std::string text = clauses.front();
    for (std::size_t i = 1; i < clauses.size(); ++i) {
      text += " AND " + clauses[i];
    }
    return text;
  }
  if (const auto* metadata = std::get_if<MetadataNotYes>(&node_->shape)) {
    return "metadata." + metadata->key + " != 1";
  }
  const auto& all = std::get<std::vector<NSPredicate>>(node_->shape);
  if (all.empty()) {
    return "TRUEPREDICATE";
  }
  std::string text;
  for (const NSPredicate& sub : all) {
    text += (text.empty() ? "(" : " AND (") + sub.predicateFormat() + ")";
  }
  return text;
}

}  // namespace velk::platform
