// Exports name the source of every record ("Anna's Apple Watch", "AutoSleep") but not its bundle
// identifier, which the sleep summary filters on: it keeps only samples whose identifier contains
// "com.apple.health", the health store's own sources on the phone and the watch and the Health
// app. This rule derives an identifier for a record's source from what the export does carry,
// so that the same records pass that filter as on the phone. The full rule, in order:
//
//  1. A source name listed in the user's mapping file gets the identifier listed there.
//  2. The Health app ("Health" or its name in a few major languages): "com.apple.health".
//  3. The phone's or the watch's own sources: "com.apple.health.device.<slug>", when either
//     - the name contains the word "iPhone", "Apple Watch", "iPad" or "iPod" (the names that
//       the system gives a device, also in "iPhone de Marie"), or
//     - the record's device attribute names an Apple iPhone, Watch, iPad or iPod and the
//       source's version has the same major version as the device's software (a renamed
//       phone still writes its OS version; an app that merely attaches the device does not).
//  4. Everyone else: "export.source.<slug>", which never contains "com.apple.health".
//
// The slug is the name in lowercase ASCII letters and digits, other runs as "-"; a name with
// characters beyond ASCII (or none left) gets a hash of its bytes appended, so that distinct
// names keep distinct identifiers. The rule is a pure function of one record's attributes:
// the same source yields the same identifier whatever the order of the records.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

#include "velk/Result.h"

namespace velk::ingest {

class SourceIdentifierRule {
 public:
  /// The identifier of the Health app, which the sleep filter accepts.
  static constexpr std::string_view kHealthApp = "com.apple.health";
  static constexpr std::string_view kDevicePrefix = "com.apple.health.device.";
  static constexpr std::string_view kThirdPartyPrefix = "export.source.";

  SourceIdentifierRule() = default;
  /// With a mapping from source name (exactly as in the export) to bundle identifier.
  explicit SourceIdentifierRule(std::map<std::string, std::string, std::less<>> overrides);

  /// Reads a mapping file: a JSON object whose members map source names to identifiers.
  static Result<SourceIdentifierRule> fromMappingFile(const std::filesystem::path& path);

  /// The identifier for a record's source, from its `sourceName`, `sourceVersion` and `device`
  /// attributes (empty when absent).
  std::string identifierFor(std::string_view sourceName, std::string_view sourceVersion,
                            std::string_view device) const;

  /// The slug of a name as used in the identifiers ("Sleep Cycle" -> "sleep-cycle").
  static std::string slug(std::string_view name);

 private:
  std::map<std::string, std::string, std::less<>> overrides_;
};

}  // namespace velk::ingest
