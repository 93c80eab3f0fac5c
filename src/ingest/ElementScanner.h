// A reader for the plain XML that nearly every line of an export is written in: elements with
// double-quoted attributes and child elements, nothing else. It reads a part's top-level
// elements much faster than building pugixml's tree of them, and hands each to the
// ElementReader exactly as the pugixml path would.
//
// It reads an element only when pugixml, parsing from the same place, would read the same
// element and come out at the same place: names of ASCII letters, digits and "_.:-", attributes
// written name="value" with the five named escapes and character references to real characters,
// blanks between. Anything else (a comment, text, a single quote, a reference it does not know,
// damage, and the zero bytes that pugixml leaves where it cut names and values when it parsed a
// stretch that is read again after damage) stops it before the top-level element that holds it,
// and pugixml goes on from there, with its own way of reporting and recovering from damage. It
// never reads the part's last byte as part of an element, since pugixml reads that byte in a way of
// its own. The fuzz target fuzz_export_scanner compares the two ways on any input.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ExportElements.h"

namespace velk::ingest {

class ElementScanner {
 public:
  /// Reads `text`, whose top-level elements start lines after `indent`.
  ElementScanner(std::string_view text, std::string_view indent);

  /// Reads top-level elements from `from` on into `reader` while they are in the plain form.
  /// Returns the size of the text when it read all of it, else the offset from which pugixml
  /// must go on: just after the last element read, or `from`.
  std::size_t scan(std::size_t from, ElementReader& reader);

 private:
  struct Event {
    std::size_t offset = 0;  ///< of the "<"; ends have none
    std::string_view name;   ///< empty for an end
    std::size_t firstAttribute = 0;
    std::size_t attributeCount = 0;
  };
  // A value with escapes, decoded once for as long as the same raw text comes back in the same
  // place of the top-level element (a device description in every record of a watch).
  struct DecodedValue {
    std::string raw;
    std::string text;
  };

  bool scanTree(std::size_t at, std::size_t& end);
  bool scanStartTag(std::size_t& at, bool& closed);
  bool scanAttribute(std::size_t& at);
  bool scanValue(std::size_t& at, std::string_view& value);
  bool decodeInto(std::string_view raw, std::string& out) const;
  bool scanEndTag(std::size_t& at, std::string_view name) const;
  bool endsBeforeATopLevelLine(std::size_t end, std::size_t& next) const;
  void replay(ElementReader& reader) const;

  std::string_view text_;
  std::string_view indent_;
  std::size_t limit_;    ///< elements must end before it: the part's last byte is not theirs
  bool topTag_ = false;  ///< scanning the start tag of the top-level element
  std::vector<Event> events_;
  std::vector<RawAttribute> attributes_;
  std::vector<std::string_view> open_;       ///< names of the open elements, innermost last
  std::array<DecodedValue, 16> topDecoded_;  ///< by attribute of the top-level element
  /// Values decoded in child elements; each string stays where it is while the list grows.
  std::vector<std::unique_ptr<std::string>> childDecoded_;
  std::size_t childDecodedUsed_ = 0;
};

}  // namespace velk::ingest
