// Query predicates: the few shapes of NSPredicate that health-store queries are built from, as an
// immutable value that the store evaluates against each candidate sample.
//
//   date range       HKQuery::predicateForSamples(start, end, options)
//   metadata test    "metadata.%K != YES" with a metadata key
//   conjunction      NSCompoundPredicate::andPredicateWithSubpredicates
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "velk/Date.h"

namespace velk::platform {

class HKSample;
struct StoredSample;

/// The platform's options for sample date predicates; none means "overlaps the range".
enum class HKQueryOptions : unsigned { none = 0, strictStartDate = 1, strictEndDate = 2 };

class NSPredicate {
 public:
  /// What a predicate looks at in a sample.
  struct Subject {
    Date startDate;
    Date endDate;
    std::optional<bool> wasUserEntered;
  };

  /// The bounds outside which no matching sample can lie: every match has endDate >= start and
  /// startDate < end (an absent bound is open). A store narrows its candidates with them.
  struct DateBounds {
    std::optional<Date> start;
    std::optional<Date> end;
  };

  /// "metadata.%K != YES" with `key`: true for samples whose metadata lacks the key or holds
  /// false under it.
  static NSPredicate metadataValueIsNotYes(std::string key);

  bool evaluate(const Subject& subject) const;
  bool evaluateWithObject(const HKSample& sample) const;
  bool evaluate(const StoredSample& sample) const;

  DateBounds dateBounds() const;

  /// The predicate in the platform's format language, for messages and the tool's traces.
  std::string predicateFormat() const;

  struct Node;

 private:
  friend class HKQuery;
  friend class NSCompoundPredicate;
  explicit NSPredicate(std::shared_ptr<const Node> node) : node_(std::move(node)) {}
  std::shared_ptr<const Node> node_;
};

class NSCompoundPredicate {
 public:
  /// True when every one of `subpredicates` is (and true when there are none).
  static NSPredicate andPredicateWithSubpredicates(std::vector<NSPredicate> subpredicates);
};

/// The query base class of the platform; here it carries the sample predicate factories.
class HKQuery {
 public:
  /// Samples in the range. With no options: endDate >= start AND startDate < end; a missing start
  /// drops the first clause, a missing end the second. strictStartDate asks startDate >= start
  /// instead, strictEndDate asks endDate < end as well.
  static NSPredicate predicateForSamples(std::optional<Date> startDate, std::optional<Date> endDate,
                                         HKQueryOptions options = HKQueryOptions::none);
};

}  // namespace velk::platform
