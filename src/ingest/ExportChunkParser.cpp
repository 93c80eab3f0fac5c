#include "ExportChunkParser.h"

#include <algorithm>
#include <cstring>
#include <pugixml.hpp>
#include <vector>

#include "ByteMasks.h"
#include "ElementScanner.h"
#include "ExportElements.h"

namespace velk::ingest {

namespace {

// Only elements and their attributes are of use: no text, comments or processing instructions,
// no line-end or whitespace conversion (the text is normalised later, for the few values that
// are kept, so that line breaks stay where they are for the line numbers of the report).
// Escapes are decoded: source names hold "&#8217;", device descriptions "&lt;".
constexpr unsigned kParseOptions = pugi::parse_minimal | pugi::parse_escapes | pugi::parse_fragment;

// Where in the part an element starts: its name is cut out of the part's bytes in place.
std::size_t offsetOf(pugi::xml_node node, const char* base, std::size_t size) {
  const char* name = node.name();
  if (name <= base || name > base + size) {
    return 0;
  }
  return static_cast<std::size_t>(name - base) - 1;
}

pugi::xml_node firstElementChild(pugi::xml_node node) {
  auto child = node.first_child();
  while (child && child.type() != pugi::node_element) {
    child = child.next_sibling();
  }
  return child;
}

pugi::xml_node nextElementSibling(pugi::xml_node node) {
  auto next = node.next_sibling();
  while (next && next.type() != pugi::node_element) {
    next = next.next_sibling();
  }
  return next;
}

pugi::xml_node lastElementChild(pugi::xml_node node) {
  auto child = node.last_child();
  while (child && child.type() != pugi::node_element) {
    child = child.previous_sibling();
  }
  return child;
}

class ChunkParser {
 public:
  ChunkParser(ExportChunk& chunk, const ChunkContext& context, ChunkSyntax syntax)
      : chunk_(chunk),
        context_(context),
        syntax_(syntax),
        reader_(chunk, context, result_),
        scanner_(viewOf(chunk.bytes), context.indent) {}

  ChunkResult run() {
    const auto size = chunk_.bytes.size();
    chunk_.lines.clear();
    if (const auto replaced = chunk_.lines.extendAndClean(chunk_.bytes.data(), 0, size)) {
      result_.report.noteMany(ExportIssue::controlCharacters, replaced);
    }
    std::size_t offset = 0;
    while (offset < size) {
      if (syntax_ == ChunkSyntax::scanned) {
        offset = scanner_.scan(offset, reader_);
        if (offset == size) {
          break;
        }
      }
      offset = parseWithPugixml(offset);
    }
    reader_.finish();
    return std::move(result_);
  }

 private:
  // Parses the part from `offset` to its end, or to the first damage; returns where to go on
  // (the next top-level element after the damage), or the part's size.
  std::size_t parseWithPugixml(std::size_t offset) {
    char* const bytes = chunk_.bytes.data();
    const auto size = chunk_.bytes.size();
    pugi::xml_document document;
    const auto parsed = document.load_buffer_inplace(bytes + offset, size - offset, kParseOptions,
                                                     pugi::encoding_utf8);
    if (parsed) {
      readElements(document, std::string_view::npos);
      return size;
    }
    const auto errorAt =
        offset + static_cast<std::size_t>(std::max<std::ptrdiff_t>(parsed.offset, 0));
    readElements(document, errorAt);
    result_.report.note(ExportIssue::malformedXml,
                        chunk_.firstLine + chunk_.lines.feedsBefore(errorAt), parsed.description());
    const auto next = nextTopLevelStart(viewOf(chunk_.bytes), errorAt + 1, context_.indent);
    return next == std::string_view::npos ? size : next;
  }

  // The top-level elements of `document`. After damage at `errorAt` the tree holds the
  // elements up to it, the last of them perhaps unfinished: it is taken only when a later
  // top-level element started before the damage.
  void readElements(const pugi::xml_document& document, std::size_t errorAt) {
    const auto last = lastElementChild(document);
    for (auto top = firstElementChild(document); top; top = nextElementSibling(top)) {
      if (top == last && errorAt != std::string_view::npos) {
        const auto start = offsetOf(top, chunk_.bytes.data(), chunk_.bytes.size());
        if (nextTopLevelStart(viewOf(chunk_.bytes), start + 1, context_.indent) > errorAt) {
          break;
        }
      }
      readTree(top);
    }
  }

  // Visits the elements of one top-level element in document order without recursion (a
  // damaged file may nest elements deeper than any stack), closing each after its children.
  void readTree(pugi::xml_node top) {
    reader_.beginTree();
    auto node = top;
    while (true) {
      startElement(node);
      if (const auto child = firstElementChild(node)) {
        node = child;
        continue;
      }
      while (true) {
        reader_.end();
        if (node == top) {
          return;
        }
        if (const auto next = nextElementSibling(node)) {
          node = next;
          break;
        }
        node = node.parent();
      }
    }
  }

  void startElement(pugi::xml_node node) {
    attributes_.clear();
    for (auto attribute = node.first_attribute(); attribute;
         attribute = attribute.next_attribute()) {
      attributes_.push_back(RawAttribute{attribute.name(), attribute.value()});
    }
    reader_.start(node.name(), offsetOf(node, chunk_.bytes.data(), chunk_.bytes.size()),
                  attributes_);
  }

  ExportChunk& chunk_;
  const ChunkContext& context_;
  ChunkSyntax syntax_;
  ChunkResult result_;
  ElementReader reader_;
  ElementScanner scanner_;
  std::vector<RawAttribute> attributes_;
};

}  // namespace

ChunkResult parseChunk(ExportChunk& chunk, const ChunkContext& context, ChunkSyntax syntax) {
  return ChunkParser(chunk, context, syntax).run();
}

bool startsTopLevelElement(std::string_view text, std::size_t at, std::string_view indent) {
  const auto tag = at + indent.size();
  if (tag + 1 >= text.size() || text[tag] != '<' || text[tag + 1] == '/' || text[tag + 1] == '!' ||
      text[tag + 1] == '?') {
    return false;
  }
  for (std::size_t i = 0; i < indent.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[at + i]);
    if (c != static_cast<unsigned char>(indent[i]) &&
        (indent[i] != ' ' || !isForbiddenControl(c))) {
      return false;
    }
  }
  return true;
}

std::size_t nextTopLevelStart(std::string_view text, std::size_t from, std::string_view indent) {
  if (from == 0) {
    if (startsTopLevelElement(text, 0, indent)) {
      return 0;
    }
    from = 1;
  }
  for (auto newline = text.find('\n', from - 1); newline != std::string_view::npos;
       newline = text.find('\n', newline + 1)) {
    if (startsTopLevelElement(text, newline + 1, indent)) {
      return newline + 1;
    }
  }
  return std::string_view::npos;
}

std::size_t lastTopLevelStart(std::string_view text, std::string_view indent) {
  for (auto newline = findLastByte(text, '\n'); newline != std::string_view::npos && newline > 0;
       newline = findLastByte(text, '\n', newline)) {
    if (startsTopLevelElement(text, newline + 1, indent)) {
      return newline + 1;
    }
  }
  return std::string_view::npos;
}

}  // namespace velk::ingest
