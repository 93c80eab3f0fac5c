#include "platform/HKUnit.h"
#include "velk/DebugOutput.h"

#include <array>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

namespace velk::platform {

namespace {

// Base dimensions. Energy, pressure, power and the like are products of the first three, so that
// "kcal" and "kJ" are compatible as they are on the platform. Count and percent have no dimension.
enum Dimension : std::size_t {
  kMass,
  kLength,
  kTime,
  kTemperature,
  kAmount,
  kCurrent,
  kSoundLevel,
  kInternationalUnit,
  kDimensionCount
};

using Exponents = std::array<int, kDimensionCount>;

}  // namespace

struct HKUnit::Definition {
  std::string text;
  Exponents exponents{};
  double scale = 1.0;   ///< value in SI base = value * scale + offset
  double offset = 0.0;  ///< non-zero only for the temperature scales with a shifted zero
};

namespace {

struct BaseUnit {
  Exponents exponents;
  double scale;
  double offset;
  bool takesPrefix;
};

constexpr Exponents dims(int mass, int length, int time, int temperature = 0, int amount = 0,
                         int current = 0, int sound = 0, int iu = 0) {
  return {mass, length, time, temperature, amount, current, sound, iu};
}

const std::unordered_map<std::string_view, BaseUnit>& baseUnits() {
  static const std::unordered_map<std::string_view, BaseUnit> table = {
      {"count", {dims(0, 0, 0), 1.0, 0.0, false}},
      {"%", {dims(0, 0, 0), 0.01, 0.0, false}},
      {"g", {dims(1, 0, 0), 0.001, 0.0, true}},
      {"lb", {dims(1, 0, 0), 0.45359237, 0.0, false}},
      {"oz", {dims(1, 0, 0), 0.028349523125, 0.0, false}},
      {"st", {dims(1, 0, 0), 6.35029318, 0.0, false}},
      {"m", {dims(0, 1, 0), 1.0, 0.0, true}},
      {"in", {dims(0, 1, 0), 0.0254, 0.0, false}},
      {"ft", {dims(0, 1, 0), 0.3048, 0.0, false}},
      {"yd", {dims(0, 1, 0), 0.9144, 0.0, false}},
      {"mi", {dims(0, 1, 0), 1609.344, 0.0, false}},
      {"s", {dims(0, 0, 1), 1.0, 0.0, true}},
      {"min", {dims(0, 0, 1), 60.0, 0.0, false}},
      {"hr", {dims(0, 0, 1), 3600.0, 0.0, false}},
      {"d", {dims(0, 0, 1), 86400.0, 0.0, false}},
      {"L", {dims(0, 3, 0), 0.001, 0.0, true}},
      {"fl_oz_us", {dims(0, 3, 0), 2.95735295625e-5, 0.0, false}},
      {"fl_oz_imp", {dims(0, 3, 0), 2.84130625e-5, 0.0, false}},
      {"cup_us", {dims(0, 3, 0), 2.365882365e-4, 0.0, false}},
      {"cup_imp", {dims(0, 3, 0), 2.84130625e-4, 0.0, false}},
      {"pt_us", {dims(0, 3, 0), 4.73176473e-4, 0.0, false}},
      {"pt_imp", {dims(0, 3, 0), 5.6826125e-4, 0.0, false}},
      {"J", {dims(1, 2, -2), 1.0, 0.0, true}},
      {"cal", {dims(1, 2, -2), 4.184, 0.0, true}},
      {"Cal", {dims(1, 2, -2), 4184.0, 0.0, false}},
      {"W", {dims(1, 2, -3), 1.0, 0.0, true}},
      {"Pa", {dims(1, -1, -2), 1.0, 0.0, true}},
      {"mmHg", {dims(1, -1, -2), 133.322387415, 0.0, false}},
      {"cmAq", {dims(1, -1, -2), 98.0665, 0.0, false}},
      {"atm", {dims(1, -1, -2), 101325.0, 0.0, false}},
      {"inHg", {dims(1, -1, -2), 3386.389, 0.0, false}},
      {"Hz", {dims(0, 0, -1), 1.0, 0.0, true}},
      {"V", {dims(1, 2, -3, 0, 0, -1), 1.0, 0.0, true}},
      {"S", {dims(-1, -2, 3, 0, 0, 2), 1.0, 0.0, true}},
      {"mol", {dims(0, 0, 0, 0, 1), 1.0, 0.0, true}},
      {"K", {dims(0, 0, 0, 1), 1.0, 0.0, false}},
      {"degC", {dims(0, 0, 0, 1), 1.0, 273.15, false}},
      {"degF", {dims(0, 0, 0, 1), 5.0 / 9.0, 459.67 * 5.0 / 9.0, false}},
      {"dBASPL", {dims(0, 0, 0, 0, 0, 0, 1), 1.0, 0.0, false}},
      {"dBHL", {dims(0, 0, 0, 0, 0, 0, 1), 1.0, 0.0, false}},
      {"IU", {dims(0, 0, 0, 0, 0, 0, 0, 1), 1.0, 0.0, false}},
  };
  return table;
}

struct Prefix {
  std::string_view text;
  double scale;
};

// Two-letter prefixes first, so that "da" and "mc" are not read as "d" and "m".
constexpr std::array<Prefix, 13> kPrefixes{{{"da", 1e1},
                                            {"mc", 1e-6},
                                            {"f", 1e-15},
                                            {"p", 1e-12},
                                            {"n", 1e-9},
                                            {"m", 1e-3},
                                            {"c", 1e-2},
                                            {"d", 1e-1},
                                            {"h", 1e2},
                                            {"k", 1e3},
                                            {"M", 1e6},
                                            {"G", 1e9},
                                            {"T", 1e12}}};

std::string_view prefixText(HKMetricPrefix prefix) {
  switch (prefix) {
    case HKMetricPrefix::none:
      return "";
    case HKMetricPrefix::pico:
      return "p";
    case HKMetricPrefix::nano:
      return "n";
    case HKMetricPrefix::micro:
      return "mc";
    case HKMetricPrefix::milli:
      return "m";
    case HKMetricPrefix::centi:
      return "c";
    case HKMetricPrefix::deci:
      return "d";
    case HKMetricPrefix::deca:
      return "da";
    case HKMetricPrefix::hecto:
      return "h";
    case HKMetricPrefix::kilo:
      return "k";
    case HKMetricPrefix::mega:
      return "M";
    case HKMetricPrefix::giga:
      return "G";
    case HKMetricPrefix::tera:
      return "T";
    case HKMetricPrefix::femto:
      return "f";
  }
  fatalError("unknown metric prefix " + std::to_string(static_cast<int>(prefix)));
}

// A unit while it is being read: dimension and scale, plus whether it is a shifted temperature
// scale, which the platform accepts only on its own (a "degC per minute" has no meaning).
struct Term {
  Exponents exponents{};
  double scale = 1.0;
  double offset = 0.0;
  bool shifted = false;

  Term times(const Term& other, int sign) const {
    Term result;
    for (std::size_t i = 0; i < kDimensionCount; ++i) {
      result.exponents[i] = exponents[i] + sign * other.exponents[i];
    }
    result.scale = sign > 0 ? scale * other.scale : scale / other.scale;
    result.shifted = shifted || other.shifted;
    return result;
  }
};

std::optional<Term> atom(std::string_view name) {
  // Molar units may carry their molar mass ("mmol<180.15588>"); it plays no part in conversions
  // between molar units, which are all this store does with them.
  if (const auto open = name.find('<'); open != std::string_view::npos) {
    if (name.back() != '>') {
      return std::nullopt;
    }
    name = name.substr(0, open);
  }
  const auto& table = baseUnits();
  if (const auto found = table.find(name); found != table.end()) {
    const BaseUnit& base = found->second;
    return Term{base.exponents, base.scale, base.offset, base.offset != 0.0};
  }
  for (const Prefix& prefix : kPrefixes) {
    if (name.size() > prefix.text.size() && name.substr(0, prefix.text.size()) == prefix.text) {
      const auto base = table.find(name.substr(prefix.text.size()));
      if (base != table.end() && base->second.takesPrefix) {
        return Term{base->second.exponents, base->second.scale * prefix.scale, 0.0, false};
      }
    }
  }
  return std::nullopt;
}

// Recursive descent over: quotient := product ('/' product)?; product := power (('*'|'·') power)*;
// power := primary ('^' integer)?; primary := name | '(' quotient ')'. Parentheses nest at most
// kMaxNesting deep, so that a hostile text cannot exhaust the stack.
class UnitParser {
 public:
  explicit UnitParser(std::string_view text) : text_(text) {}

  std::optional<Term> parse() {
    auto result = quotient();
    if (!result || pos_ != text_.size()) {
      return std::nullopt;
    }
    // A shifted scale must stand alone: "degC" yes, "degC/min" or "degC^2" no.
    if (result->shifted && !standalone_) {
      return std::nullopt;
    }
    return result;
  }

 private:
  static constexpr std::string_view kMiddleDot = "\xC2\xB7";
  static constexpr int kMaxNesting = 8;  // real units nest one or two deep

  bool consume(std::string_view token) {
    if (text_.substr(pos_, token.size()) == token) {
      pos_ += token.size();
      return true;
    }
    return false;
  }

  std::optional<Term> quotient() {
    auto numerator = product();
    if (!numerator) {
      return std::nullopt;
    }
    if (!consume("/")) {
      return numerator;
    }
    standalone_ = false;
    auto denominator = product();
    if (!denominator) {
      return std::nullopt;
    }
    return numerator->times(*denominator, -1);
  }

  std::optional<Term> product() {
    auto result = power();
    while (result && (consume("*") || consume(kMiddleDot))) {
      standalone_ = false;
      auto next = power();
      if (!next) {
        return std::nullopt;
      }
      result = result->times(*next, 1);
    }
    return result;
  }

  std::optional<Term> power() {
    auto base = primary();
    if (!base || !consume("^")) {
      return base;
    }
    standalone_ = false;
    const bool negative = consume("-");
    const std::size_t start = pos_;
    while (pos_ < text_.size() && std::isdigit(static_cast<unsigned char>(text_[pos_])) != 0) {
      ++pos_;
    }
    if (pos_ == start || pos_ - start > 2) {
      return std::nullopt;
    }
    const int exponent = std::stoi(std::string(text_.substr(start, pos_ - start)));
    Term result;
    for (int i = 0; i < exponent; ++i) {
      result = result.times(*base, negative ? -1 : 1);
    }
    result.shifted = base->shifted;
    return result;
  }

  std::optional<Term> primary() {
    if (consume("(")) {
      standalone_ = false;
      if (++nesting_ > kMaxNesting) {
        return std::nullopt;
      }
      auto inner = quotient();
      --nesting_;
      if (!inner || !consume(")")) {
        return std::nullopt;
      }
      return inner;
    }
    const std::size_t start = pos_;
    int angle = 0;
    while (pos_ < text_.size()) {
      const char c = text_[pos_];
      if (c == '<') {
        ++angle;
      } else if (c == '>') {
        --angle;
      } else if (angle == 0 && (c == '*' || c == '/' || c == '^' || c == '(' || c == ')' ||
                                text_.substr(pos_, kMiddleDot.size()) == kMiddleDot)) {
        break;
      }
      ++pos_;
    }
    if (pos_ == start || angle != 0) {
      return std::nullopt;
    }
    return atom(text_.substr(start, pos_ - start));
  }

  std::string_view text_;
  std::size_t pos_ = 0;
  int nesting_ = 0;
  bool standalone_ = true;
};

struct Registry {
  std::mutex mutex;
  std::unordered_map<std::string, std::unique_ptr<const HKUnit::Definition>> byText;
};

Registry& registry() {
  static Registry* const instance = new Registry;  // never destroyed: units outlive statics
  return *instance;
}

bool needsParentheses(const std::string& text) {
  return text.find('/') != std::string::npos;
}

HKUnit mustParse(std::string_view text) {
  auto unit = HKUnit::unitFromString(text);
  if (!unit) {
    fatalError("\"" + std::string(text) + "\" is not a unit");
  }
  return *unit;
}

HKUnit prefixed(HKMetricPrefix prefix, std::string_view base) {
  return mustParse(std::string(prefixText(prefix)) + std::string(base));
}

}  // namespace

std::optional<HKUnit> HKUnit::unitFromString(std::string_view text) {
  Registry& reg = registry();
  const std::string key(text);
  {
    std::lock_guard lock(reg.mutex);
    if (const auto found = reg.byText.find(key); found != reg.byText.end()) {
      return HKUnit(found->second.get());
    }
  }
  const auto term = UnitParser(text).parse();
  if (!term) {
    return std::nullopt;
  }
  auto definition = std::make_unique<Definition>(
      Definition{key, term->exponents, term->scale, term->shifted ? term->offset : 0.0});
  std::lock_guard lock(reg.mutex);
  const auto [entry, inserted] = reg.byText.emplace(key, std::move(definition));
  return HKUnit(entry->second.get());
}

HKUnit HKUnit::countUnit() {
  return mustParse("count");
}
HKUnit HKUnit::secondUnitWithMetricPrefix(HKMetricPrefix prefix) {
  return prefixed(prefix, "s");
}
HKUnit HKUnit::minuteUnit() {
  return mustParse("min");
}
HKUnit HKUnit::gramUnitWithMetricPrefix(HKMetricPrefix prefix) {
  return prefixed(prefix, "g");
}
HKUnit HKUnit::poundUnit() {
  return mustParse("lb");
}
HKUnit HKUnit::meterUnitWithMetricPrefix(HKMetricPrefix prefix) {
  return prefixed(prefix, "m");
}
HKUnit HKUnit::inchUnit() {
  return mustParse("in");
}
HKUnit HKUnit::kilocalorieUnit() {
  return mustParse("kcal");
}
HKUnit HKUnit::largeCalorieUnit() {
  return mustParse("Cal");
}
HKUnit HKUnit::degreeCelsiusUnit() {
  return mustParse("degC");
}
HKUnit HKUnit::degreeFahrenheitUnit() {
  return mustParse("degF");
}

HKUnit HKUnit::unitDividedByUnit(HKUnit other) const {
  const std::string& denominator = other.unitString();
  const bool compound = denominator.find_first_of("/*") != std::string::npos ||
                        denominator.find("\xC2\xB7") != std::string::npos;
  const std::string numerator =
      needsParentheses(unitString()) ? "(" + unitString() + ")" : unitString();
  return mustParse(numerator + "/" + (compound ? "(" + denominator + ")" : denominator));
}

const std::string& HKUnit::unitString() const {
  return definition_->text;
}

bool HKUnit::isCompatible(HKUnit other) const {
  return definition_->exponents == other.definition_->exponents;
}

double HKUnit::convert(double value, HKUnit target) const {
  if (!isCompatible(target)) {
    fatalError("attempt to convert incompatible units: \"" + unitString() +
               "\" cannot be expressed in \"" + target.unitString() + "\"");
  }
  if (definition_ == target.definition_) {
    return value;
  }
  const double base = value * definition_->scale + definition_->offset;
  return (base - target.definition_->offset) / target.definition_->scale;
}

}  // namespace velk::platform
