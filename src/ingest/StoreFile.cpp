#include "ingest/StoreFile.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <vector>

#include "platform/CanonicalUnits.h"
#include "platform/HKObjectType.h"
#include "platform/HKUnit.h"
#include "platform/Iso8601.h"
#include "platform/StoredSample.h"

namespace velk::ingest {
namespace {

using nlohmann::json;
using platform::SampleKind;
using platform::SampleRecord;

constexpr std::string_view kDefaultSource = "com.apple.health";

// A problem found while reading: where (a JSON path) and what. Thrown inside this file only, and
// turned into an Error before anything leaves it.
struct Invalid {
  std::string path;
  std::string problem;
};

[[noreturn]] void fail(const std::string& path, std::string problem) {
  throw Invalid{path, std::move(problem)};
}

std::string inQuotes(std::string_view text) {
  return json(std::string(text)).dump();
}

std::string member(const std::string& path, std::string_view key) {
  return path.empty() ? std::string(key) : path + "." + std::string(key);
}

std::string element(const std::string& path, std::size_t index) {
  return path + "[" + std::to_string(index) + "]";
}

// ----- Lexical forms of dates -----------------------------------------------------------------

// "2024-03-10T08:30:00+01:00", "2024-03-10T07:30:00.250Z": a day, a time and a UTC offset.
constexpr platform::Iso8601Syntax kMomentSyntax{.fractionDigits =
                                                    std::numeric_limits<std::size_t>::max()};

// ----- The reader -------------------------------------------------------------------------------

class StoreFileReader {
 public:
  StoreFileContents read(const json& root) {
    const std::string path;
    requireObject(root, path, "the top level");
    allowOnly(root, path,
              {"health_data_available", "unknown_types", "authorization", "query_errors",
               "date_of_birth", "biological_sex", "samples", "source_priority"});
    StoreFileContents contents;
    if (const json* flag = find(root, "health_data_available")) {
      contents.settings.healthDataAvailable = boolean(*flag, "health_data_available");
    }
    if (const json* list = find(root, "unknown_types")) {
      requireArray(*list, "unknown_types");
      for (std::size_t i = 0; i < list->size(); ++i) {
        contents.settings.unknownTypes.insert(string((*list)[i], element("unknown_types", i)));
      }
    }
    if (const json* answer = find(root, "authorization")) {
      contents.settings.authorization = authorization(*answer, "authorization");
    }
    if (const json* errors = find(root, "query_errors")) {
      requireObject(*errors, "query_errors", "an object of type identifiers");
      for (const auto& [type, value] : errors->items()) {
        contents.settings.queryErrors.emplace(type,
                                              storeError(value, member("query_errors", type)));
      }
    }
    if (const json* list = find(root, "source_priority")) {
      requireArray(*list, "source_priority");
      for (std::size_t i = 0; i < list->size(); ++i) {
        contents.settings.sourcePriority.push_back(
            string((*list)[i], element("source_priority", i)));
      }
    }
    if (const json* birth = find(root, "date_of_birth")) {
      contents.characteristics.dateOfBirth = dateOfBirth(*birth, "date_of_birth");
    }
    if (const json* sex = find(root, "biological_sex")) {
      contents.characteristics.biologicalSex = biologicalSex(*sex, "biological_sex");
    }
    if (const json* samples = find(root, "samples")) {
      requireArray(*samples, "samples");
      contents.samples.reserve(samples->size());
      for (std::size_t i = 0; i < samples->size(); ++i) {
        contents.samples.push_back(sample((*samples)[i], element("samples", i)));
      }
    }
    return contents;
  }

 private:
  static const json* find(const json& object, std::string_view key) {
    const auto found = object.find(key);
    return found == object.end() ? nullptr : &*found;
  }

  static void requireObject(const json& value, const std::string& path, std::string_view what) {
    if (!value.is_object()) {
      fail(path, "expected " + std::string(what) + " to be an object, found " + value.type_name());
    }
  }

  static void requireArray(const json& value, const std::string& path) {
    if (!value.is_array()) {
      fail(path, std::string("expected an array, found ") + value.type_name());
    }
  }

  static void allowOnly(const json& object, const std::string& path,
                        std::initializer_list<std::string_view> keys) {
    for (const auto& [key, value] : object.items()) {
      if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
        fail(member(path, key), "unknown key");
      }
    }
  }

  static bool boolean(const json& value, const std::string& path) {
    if (!value.is_boolean()) {
      fail(path, std::string("expected true or false, found ") + value.type_name());
    }
    return value.get<bool>();
  }

  static std::string string(const json& value, const std::string& path) {
    if (!value.is_string()) {
      fail(path, std::string("expected a string, found ") + value.type_name());
    }
    return value.get<std::string>();
  }

  static std::int64_t integer(const json& value, const std::string& path) {
    if (value.is_number_unsigned() &&
        value.get<std::uint64_t>() >
            static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      fail(path, "integer out of the 64-bit range");
    }
    if (!value.is_number_integer()) {
      fail(path, std::string("expected an integer, found ") +
                     (value.is_number() ? value.dump() : value.type_name()));
    }
    return value.get<std::int64_t>();
  }

  static double finiteNumber(const json& value, const std::string& path) {
    if (!value.is_number()) {
      fail(path, std::string("expected a number, found ") + value.type_name());
    }
    const double number = value.get<double>();
    if (!std::isfinite(number)) {
      fail(path, "the number is not finite");
    }
    return number;
  }

  static Date moment(const json& value, const std::string& path) {
    const std::string text = string(value, path);
    const auto written = platform::readIso8601(text, kMomentSyntax);
    const auto date = written ? written->moment() : std::nullopt;
    if (!date) {
      fail(path,
           "expected an ISO 8601 date and time with a UTC offset or Z "
           "(\"2024-03-10T08:30:00+01:00\"), found " +
               inQuotes(text));
    }
    return *date;
  }

  static Error storeError(const json& value, const std::string& path) {
    requireObject(value, path, "an error");
    allowOnly(value, path, {"code", "message"});
    const json* code = find(value, "code");
    const json* message = find(value, "message");
    if (code == nullptr || message == nullptr) {
      fail(path, "an error needs both \"code\" and \"message\"");
    }
    return Error(platform::kHealthKitErrorDomain, integer(*code, member(path, "code")),
                 string(*message, member(path, "message")));
  }

  // {"error": {...}}, the form in which a characteristic read fails.
  static std::optional<Error> failedRead(const json& value, const std::string& path) {
    if (!value.is_object()) {
      return std::nullopt;
    }
    allowOnly(value, path, {"error"});
    const json* error = find(value, "error");
    if (error == nullptr) {
      fail(path, "expected {\"error\": {...}}");
    }
    return storeError(*error, member(path, "error"));
  }

  static platform::AuthorizationAnswer authorization(const json& value, const std::string& path) {
    requireObject(value, path, "the authorization answer");
    allowOnly(value, path, {"success", "error"});
    platform::AuthorizationAnswer answer;
    if (const json* success = find(value, "success")) {
      answer.success = boolean(*success, member(path, "success"));
    }
    if (const json* error = find(value, "error"); error != nullptr && !error->is_null()) {
      answer.error = storeError(*error, member(path, "error"));
    }
    return answer;
  }

  static std::variant<platform::DateComponents, Error> dateOfBirth(const json& value,
                                                                   const std::string& path) {
    if (value.is_null()) {
      return platform::DateComponents{};
    }
    if (auto error = failedRead(value, path)) {
      return *error;
    }
    const std::string text = string(value, path);
    const auto day = platform::readIso8601Day(text);
    if (!day) {
      fail(path, "expected a day \"YYYY-MM-DD\", found " + inQuotes(text));
    }
    return *day;
  }

  static std::variant<std::int64_t, Error> biologicalSex(const json& value,
                                                         const std::string& path) {
    if (auto error = failedRead(value, path)) {
      return *error;
    }
    return integer(value, path);
  }

  static SampleKind kindOf(const json& sample, const std::string& type, const std::string& path) {
    if (const json* kind = find(sample, "kind")) {
      const std::string text = string(*kind, member(path, "kind"));
      if (text == "quantity") {
        return SampleKind::quantity;
      }
      if (text == "category") {
        return SampleKind::category;
      }
      fail(member(path, "kind"), "expected \"quantity\" or \"category\", found " + inQuotes(text));
    }
    const auto kind = platform::HKObjectType::kindOfIdentifier(type);
    if (kind == platform::HKObjectKind::quantity) {
      return SampleKind::quantity;
    }
    if (kind == platform::HKObjectKind::category) {
      return SampleKind::category;
    }
    fail(member(path, "type"), inQuotes(type) +
                                   " names neither a quantity nor a category type; give "
                                   "\"kind\" to store samples under it");
  }

  static std::string unitOf(const json& sample, SampleKind kind, const std::string& type,
                            const std::string& path) {
    const json* unit = find(sample, "unit");
    const auto canonical = platform::canonicalUnitForQuantityType(type);
    if (kind == SampleKind::category) {
      if (unit != nullptr) {
        fail(member(path, "unit"), "a category sample has no unit");
      }
      return {};
    }
    if (unit == nullptr) {
      if (!canonical) {
        fail(path, "\"unit\" is required: " + inQuotes(type) + " has no default unit");
      }
      return canonical->unitString();
    }
    const std::string text = string(*unit, member(path, "unit"));
    const auto parsed = platform::HKUnit::unitFromString(text);
    if (!parsed) {
      fail(member(path, "unit"), "unknown unit " + inQuotes(text));
    }
    if (canonical && !parsed->isCompatible(*canonical)) {
      fail(member(path, "unit"), inQuotes(text) + " cannot measure " + type + " (its unit is " +
                                     inQuotes(canonical->unitString()) + ")");
    }
    return text;
  }

  static SampleRecord sample(const json& value, const std::string& path) {
    requireObject(value, path, "a sample");
    allowOnly(value, path, {"type", "start", "end", "value", "unit", "source", "metadata", "kind"});
    for (const char* required : {"type", "start", "end", "value"}) {
      if (find(value, required) == nullptr) {
        fail(path, std::string("missing \"") + required + "\"");
      }
    }
    SampleRecord record;
    record.type = string(value["type"], member(path, "type"));
    record.kind = kindOf(value, record.type, path);
    record.start = moment(value["start"], member(path, "start"));
    record.end = moment(value["end"], member(path, "end"));
    if (record.end < record.start) {
      fail(member(path, "end"), "the sample ends before it starts");
    }
    if (record.kind == SampleKind::category) {
      record.value = static_cast<double>(integer(value["value"], member(path, "value")));
    } else {
      record.value = finiteNumber(value["value"], member(path, "value"));
    }
    record.unit = unitOf(value, record.kind, record.type, path);
    if (record.kind == SampleKind::quantity &&
        !platform::isPossibleQuantity(record.value, *platform::HKUnit::unitFromString(record.unit),
                                      platform::canonicalUnitForQuantityType(record.type))) {
      fail(member(path, "value"), "no measurement of " + record.type + " can be " +
                                      value["value"].dump() + " " + record.unit +
                                      " (a sample holds at most a billion in the type's unit)");
    }
    record.sourceBundleIdentifier = std::string(kDefaultSource);
    if (const json* source = find(value, "source")) {
      record.sourceBundleIdentifier = string(*source, member(path, "source"));
    }
    if (const json* metadata = find(value, "metadata")) {
      const std::string metadataPath = member(path, "metadata");
      requireObject(*metadata, metadataPath, "metadata");
      if (const json* entered = find(*metadata, "HKWasUserEntered")) {
        const std::string enteredPath = member(metadataPath, "HKWasUserEntered");
        if (entered->is_number_integer() && (*entered == 0 || *entered == 1)) {
          record.wasUserEntered = *entered == 1;
        } else {
          record.wasUserEntered = boolean(*entered, enteredPath);
        }
      }
    }
    return record;
  }
};

Error invalid(StoreFileErrorCode code, const std::string& fileName, const std::string& path,
              const std::string& problem) {
  std::string message = fileName + ": ";
  if (!path.empty()) {
    message += path + ": ";
  }
  return Error(kStoreFileErrorDomain, static_cast<std::int64_t>(code), message + problem);
}

// JSON lets the last of two equal keys win; a store file refuses them, as it refuses keys it
// does not know. Walks the text without building a tree: the parser's own hook for this (a
// callback while it builds the tree) searches each finished object's parent once more, which
// takes minutes for a file of a million samples.
struct RepeatedKeyFinder final : nlohmann::json_sax<json> {
  std::optional<std::string> repeatedKey;
  std::vector<std::vector<std::string>> openObjects;  ///< the keys of each open object

  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_object(std::size_t) override {
    openObjects.emplace_back();
    return true;
  }
  bool key(string_t& key) override {
    auto& keys = openObjects.back();
    if (!repeatedKey && std::find(keys.begin(), keys.end(), key) != keys.end()) {
      repeatedKey = key;
    }
    keys.push_back(key);
    return true;
  }
  bool end_object() override {
    openObjects.pop_back();
    return true;
  }
  bool start_array(std::size_t) override { return true; }
  bool end_array() override { return true; }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }
};

}  // namespace

Result<StoreFileContents> StoreFile::parse(std::string_view text, const std::string& fileName) {
  json root;
  try {
    root = json::parse(text);
  } catch (const json::exception& error) {  // syntax errors, and numbers beyond a double
    return Result<StoreFileContents>::failure(invalid(StoreFileErrorCode::notJson, fileName, "",
                                                      std::string("not JSON: ") + error.what()));
  }
  // The text is known to be JSON now; a second pass without a tree finds repeated keys.
  RepeatedKeyFinder finder;
  json::sax_parse(text, &finder);
  if (finder.repeatedKey) {
    return Result<StoreFileContents>::failure(
        invalid(StoreFileErrorCode::invalid, fileName, "",
                "the key \"" + *finder.repeatedKey + "\" appears twice in one object"));
  }
  try {
    return Result<StoreFileContents>::success(StoreFileReader().read(root));
  } catch (const Invalid& problem) {
    return Result<StoreFileContents>::failure(
        invalid(StoreFileErrorCode::invalid, fileName, problem.path, problem.problem));
  }
}

Result<StoreFileContents> StoreFile::read(const std::filesystem::path& path) {
  const auto unreadable = [&path](const std::string& why) {
    return Result<StoreFileContents>::failure(
        invalid(StoreFileErrorCode::cannotRead, path.string(), "", "cannot read the file: " + why));
  };
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) {
    return unreadable("it is a directory");
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    return unreadable(std::strerror(errno));
  }
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) {
    return unreadable(std::strerror(errno));
  }
  return parse(text.str(), path.string());
}

Result<std::shared_ptr<platform::InMemoryHealthDatabase>> StoreFile::load(
    const std::filesystem::path& path) {
  using Loaded = Result<std::shared_ptr<platform::InMemoryHealthDatabase>>;
  auto contents = read(path);
  if (contents.isFailure()) {
    return Loaded::failure(contents.error());
  }
  return Loaded::success(makeDatabase(contents.value()));
}

std::shared_ptr<platform::InMemoryHealthDatabase> StoreFile::makeDatabase(
    const StoreFileContents& contents) {
  return std::make_shared<platform::InMemoryHealthDatabase>(
      contents.settings, contents.characteristics, contents.samples);
}

}  // namespace velk::ingest
