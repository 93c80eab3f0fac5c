// Finding the root element of an export without trusting its prologue. Exports carry a DTD
// that an XML parser would read, and some carry a broken one (iOS 16 wrote an unclosed ATTLIST), so
// the prologue is never given to the XML parser: it is scanned here, and parsing starts at the root
// element's content.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace velk::ingest {

struct PrologueScan {
  enum class Status { needMore, found, notXml };
  Status status = Status::needMore;
  std::string rootName;       ///< name of the first element
  std::size_t bodyStart = 0;  ///< offset just past the root start tag
  bool rootIsEmpty = false;   ///< the root was written "<HealthData/>"
};

/// Scans `head`, the first bytes of a file. needMore: the root start tag is not in `head` yet
/// (give more bytes, or treat as notXml at the end of the file).
PrologueScan scanPrologue(std::string_view head);

/// The encoding the XML declaration at the start of `head` names ("UTF-8", "ISO-8859-1"), or
/// empty when there is no declaration or it names none.
std::string declaredEncoding(std::string_view head);

/// The `value` of the first <ExportDate> in `text`, or empty.
std::string_view findExportDateValue(std::string_view text);

}  // namespace velk::ingest
