#include "ingest/ExportReader.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ExportChunkParser.h"
#include "ExportPrologue.h"
#include "ingest/ExportDate.h"
#include "ingest/ExportErrors.h"

namespace velk::ingest {

namespace {

constexpr std::size_t kReadBlock = std::size_t{1} << 20;
constexpr std::size_t kSmallestRoom = std::size_t{4} << 10;
// A prologue longer than this is no export's: the export DTD is about 10 KiB.
constexpr std::size_t kPrologueLimit = std::size_t{16} << 20;
// A body without line breaks at top-level elements cannot be cut there; parts then grow to
// this size and are cut before the last "<Record" instead.
constexpr std::size_t kUncutLimit = std::size_t{64} << 20;

// The blanks before the first element that starts a line in the body, e.g. " ".
std::string learnIndent(std::string_view body) {
  for (auto newline = body.find('\n'); newline != std::string_view::npos;
       newline = body.find('\n', newline + 1)) {
    auto at = newline + 1;
    while (at < body.size() && (body[at] == ' ' || body[at] == '\t')) {
      ++at;
    }
    if (at < body.size() && body[at] == '<') {
      return std::string(body.substr(newline + 1, at - newline - 1));
    }
  }
  return {};
}

// The stream of the body from the source, in parts cut at top-level elements.
class BodyCutter {
 public:
  BodyCutter(ExportSource& source, std::string initial, std::uint64_t firstLine,
             std::size_t chunkBytes, ExportReport& report)
      : source_(source),
        line_(firstLine),
        chunkBytes_(std::max<std::size_t>(chunkBytes, 1)),
        report_(report) {
    pending_.assign(initial);
    lines_.extendAndClean(pending_.data(), 0, pending_.size());  // cleaned with the prologue
  }

  bool atEnd() const { return finished_; }

  /// Takes back the bytes of a parsed part, so that their memory serves the next parts.
  void recycle(PartBytes bytes) {
    if (spare_.size() < 4) {
      bytes.clear();
      spare_.push_back(std::move(bytes));
    }
  }
  const std::string& indent() const { return indent_; }

  /// The next part, or an error when the source fails.
  Result<ExportChunk> next() {
    while (!eof_ && (pending_.size() < chunkBytes_ || !cutAt())) {
      if (auto read = fill(); read.isFailure()) {
        return Result<ExportChunk>::failure(read.error());
      }
    }
    if (!indentKnown_) {
      indent_ = learnIndent(viewOf(pending_));
      indentKnown_ = true;
    }
    ExportChunk chunk;
    chunk.firstLine = line_;
    if (eof_ && (pending_.size() < chunkBytes_ || !cutAt())) {
      chunk.bytes = std::move(pending_);
      chunk.lines = std::move(lines_);
      pending_.clear();
      finished_ = true;
      endBody(chunk);
    } else {
      const auto cut = *cutAt();
      cutDone();
      chunk.bytes = std::move(pending_);
      chunk.lines = std::move(lines_);
      pending_ = takeSpare();
      pending_.assign(viewOf(chunk.bytes).substr(cut));
      chunk.bytes.resize(cut);
      chunk.lines.truncate(cut);
      lines_.clear();
      lines_.extendAndClean(pending_.data(), 0, pending_.size());
    }
    line_ += chunk.lines.total();
    return Result<ExportChunk>::success(std::move(chunk));
  }

 private:
  // Reads into room made at the end of `pending_`. The room follows what the source returns: a
  // whole block from files and archives, a little more than the last read from sources that
  // return a few bytes at a time.
  Result<bool> fill() {
    const auto old = pending_.size();
    pending_.resize(old + room_);
    auto got = source_.read(pending_.data() + old, room_);
    if (got.isFailure()) {
      pending_.resize(old);
      return Result<bool>::failure(got.error());
    }
    const auto size = got.value();
    pending_.resize(old + size);
    eof_ = size == 0;
    room_ = size == room_ ? std::min(2 * room_, kReadBlock)
                          : std::clamp(2 * size, kSmallestRoom, kReadBlock);
    if (const auto replaced = lines_.extendAndClean(pending_.data(), old, old + size)) {
      report_.noteMany(ExportIssue::controlCharacters, replaced);
    }
    return Result<bool>::success(true);
  }

  PartBytes takeSpare() {
    if (spare_.empty()) {
      PartBytes fresh;
      fresh.reserve(chunkBytes_ + 2 * kReadBlock);
      return fresh;
    }
    auto bytes = std::move(spare_.back());
    spare_.pop_back();
    return bytes;
  }

  // The last place where the pending bytes may be cut. Each call looks only at the bytes added
  // since the one before (a line start needs the indent and two bytes more, hence the overlap),
  // so that a body without cut points, such as a long run of blanks, is scanned once, not once
  // per block read.
  std::optional<std::size_t> cutAt() {
    if (!indentKnown_) {
      indent_ = learnIndent(viewOf(pending_));
      indentKnown_ = true;
    }
    const auto overlap = indent_.size() + 4;
    const auto from = scanned_ > overlap ? scanned_ - overlap : 0;
    if (from < pending_.size()) {
      const auto found = lastTopLevelStart(viewOf(pending_).substr(from), indent_);
      if (found != std::string::npos) {
        cut_ = from + found;
      }
    }
    scanned_ = pending_.size();
    if (!cut_ && pending_.size() >= kUncutLimit) {
      // No line starts an element here: cut before the last record, or else (a run of blanks,
      // or text that is no export) hand all but the last block on as it is, so that memory
      // stays bounded; a cut inside an element costs that element, with a warning.
      const auto record = viewOf(pending_).rfind("<Record");
      cut_ = record != 0 && record != std::string::npos ? record : pending_.size() - kReadBlock;
    }
    return cut_;
  }

  void cutDone() {
    cut_.reset();
    scanned_ = 0;
  }

  // The last part ends at </HealthData>; without it the file was cut short.
  void endBody(ExportChunk& chunk) {
    const auto close = viewOf(chunk.bytes).rfind("</HealthData");
    if (close == std::string::npos) {
      report_.note(ExportIssue::truncated, line_ + chunk.lines.total());
      return;
    }
    chunk.bytes.resize(close);
    chunk.lines.truncate(close);
  }

  ExportSource& source_;
  PartBytes pending_;
  LineIndex lines_;  ///< the line feeds of `pending_`
  std::uint64_t line_;
  std::size_t chunkBytes_;
  ExportReport& report_;
  std::string indent_;
  bool indentKnown_ = false;
  bool eof_ = false;
  bool finished_ = false;
  std::vector<PartBytes> spare_;
  std::size_t room_ = kReadBlock;  ///< bytes asked of the source by the next read
  std::size_t scanned_ = 0;        ///< pending bytes already looked at by cutAt()
  std::optional<std::size_t> cut_;
};

// A parsed part with its bytes, which go back to the cutter.
struct ParsedPart {
  ChunkResult result;
  PartBytes bytes;
};

ParsedPart parsePart(ExportChunk chunk, const ChunkContext& context) {
  auto result = parseChunk(chunk, context);
  return ParsedPart{std::move(result), std::move(chunk.bytes)};
}

class Delivery {
 public:
  Delivery(ExportSink& sink, ExportReport& report) : sink_(sink), report_(report) {}

  void operator()(ChunkResult result) {
    if (result.characteristics) {
      sink_.characteristics(std::move(*result.characteristics));
    }
    if (!result.batch.empty()) {
      sink_.records(std::move(result.batch));
    }
    report_.merge(result.report);
  }

 private:
  ExportSink& sink_;
  ExportReport& report_;
};

}  // namespace

ExportReader::ExportReader(ExportReadOptions options) : options_(std::move(options)) {}

Result<ExportReport> ExportReader::read(const std::filesystem::path& path, ExportSink& sink) const {
  auto source = ExportSource::open(path);
  if (source.isFailure()) {
    return Result<ExportReport>::failure(source.error());
  }
  return read(*source.value(), sink);
}

Result<ExportReport> ExportReader::read(ExportSource& source, ExportSink& sink) const {
  using R = Result<ExportReport>;
  ExportReport report;

  // The prologue: read until the root start tag shows.
  std::string head;
  PrologueScan scan;
  bool eof = false;
  LineIndex headLines;  // also replaces the forbidden controls, as in the body
  std::uint64_t replacedInHead = 0;
  while (scan.status == PrologueScan::Status::needMore && !eof && head.size() < kPrologueLimit) {
    const auto old = head.size();
    head.resize(old + (std::size_t{64} << 10));
    auto got = source.read(head.data() + old, head.size() - old);
    if (got.isFailure()) {
      return R::failure(got.error());
    }
    head.resize(old + got.value());
    eof = got.value() == 0;
    replacedInHead += headLines.extendAndClean(head.data(), old, head.size());
    scan = scanPrologue(head);
  }
  if (scan.status != PrologueScan::Status::found) {
    return R::failure(
        exportError(ExportErrorCode::notAnExport,
                    source.description() + " is not an Apple Health export: no XML root element"));
  }
  if (scan.rootName != "HealthData") {
    return R::failure(exportError(ExportErrorCode::notAnExport,
                                  source.description() +
                                      " is not an Apple Health export: its root element is <" +
                                      scan.rootName + ">, not <HealthData>"));
  }
  if (replacedInHead > 0) {
    report.noteMany(ExportIssue::controlCharacters, replacedInHead);
  }
  if (scan.rootIsEmpty) {
    return R::success(std::move(report));
  }

  const auto firstLine = 1 + headLines.feedsBefore(scan.bodyStart);
  BodyCutter cutter(source, head.substr(scan.bodyStart), firstLine, options_.chunkBytes, report);
  head.clear();
  head.shrink_to_fit();

  ChunkContext context;
  context.sources = &options_.sources;
  Delivery deliverResult(sink, report);
  const auto deliver = [&](ParsedPart part) {
    deliverResult(std::move(part.result));
    cutter.recycle(std::move(part.bytes));
  };
  // One part more in flight than `threads`: while the calling thread delivers the oldest result
  // and cuts the next part, `threads` parts are still being parsed, so the cores never wait for
  // it (the import's wall time drops by a seventh on two cores). The bytes in flight are held
  // to as many parts of the usual size, so that the 64 MiB parts of a body that cannot be cut
  // are parsed one at a time and memory does not grow with them.
  struct PartInFlight {
    std::future<ParsedPart> parsed;
    std::size_t bytes = 0;
  };
  std::deque<PartInFlight> inFlight;
  std::size_t bytesInFlight = 0;
  const std::size_t maxInFlight = std::max(1u, options_.threads) + 1;
  const std::size_t maxBytesInFlight = maxInFlight * std::max<std::size_t>(options_.chunkBytes, 1);
  const auto deliverOldest = [&] {
    auto oldest = std::move(inFlight.front());
    inFlight.pop_front();
    bytesInFlight -= oldest.bytes;
    deliver(oldest.parsed.get());
  };
  bool first = true;
  while (!cutter.atEnd()) {
    auto chunk = cutter.next();
    if (chunk.isFailure()) {
      while (!inFlight.empty()) {
        deliverOldest();
      }
      return R::failure(
          exportError(ExportErrorCode::readFailed, chunk.error().message() + " after " +
                                                       std::to_string(report.recordsRead) +
                                                       " records had been read"));
    }
    if (first) {
      // The export date comes first in the body; records after it are dated wrongly.
      context.exportDate =
          ExportDate::parse(findExportDateValue(viewOf(chunk.value().bytes).substr(0, 1u << 16)));
      context.indent = cutter.indent();
      first = false;
    }
    if (options_.threads <= 1) {
      deliver(parsePart(std::move(chunk).value(), context));
      continue;
    }
    const auto bytes = chunk.value().bytes.size();
    inFlight.push_back(PartInFlight{
        std::async(std::launch::async, parsePart, std::move(chunk).value(), std::cref(context)),
        bytes});
    bytesInFlight += bytes;
    while (!inFlight.empty() &&
           (inFlight.size() >= maxInFlight || bytesInFlight > maxBytesInFlight)) {
      deliverOldest();
    }
  }
  while (!inFlight.empty()) {
    deliverOldest();
  }
  return R::success(std::move(report));
}

}  // namespace velk::ingest
