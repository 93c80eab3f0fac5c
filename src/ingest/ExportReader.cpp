#include "ingest/ExportReader.h"

#include <algorithm>
#include <cctype>
#include <deque>
#include <functional>
#include <future>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ByteMasks.h"
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
constexpr std::size_t kPrologueStep = std::size_t{64} << 10;
// A body without line breaks at top-level elements cannot be cut there; parts then grow to
// this size and are cut before the last "<Record" instead.
constexpr std::size_t kUncutLimit = std::size_t{64} << 20;

// Where `needle` last starts in `text`, or npos. string_view::rfind compares the needle at every
// offset from the end; this looks only where its first byte is.
std::size_t findLast(std::string_view text, std::string_view needle) {
  for (auto at = findLastByte(text, needle.front()); at != std::string_view::npos;
       at = findLastByte(text, needle.front(), at)) {
    if (text.substr(at).starts_with(needle)) {
      return at;
    }
  }
  return std::string_view::npos;
}

// The blanks before the first element that starts a line in the body, e.g. " ". The body is
// not cleaned yet: a forbidden control stands for the space that will replace it.
std::string learnIndent(std::string_view body) {
  const auto isBlank = [](char c) {
    return c == ' ' || c == '\t' || isForbiddenControl(static_cast<unsigned char>(c));
  };
  for (auto newline = body.find('\n'); newline != std::string_view::npos;
       newline = body.find('\n', newline + 1)) {
    auto at = newline + 1;
    while (at < body.size() && isBlank(body[at])) {
      ++at;
    }
    if (at < body.size() && body[at] == '<') {
      std::string indent(body.substr(newline + 1, at - newline - 1));
      std::replace_if(
          indent.begin(), indent.end(), [](char c) { return c != '\t'; }, ' ');
      return indent;
    }
  }
  return {};
}

// The stream of the body from the source, in parts cut at top-level elements. It only reads
// and cuts: finding line feeds and replacing forbidden controls is left to the parsers, on
// threads of their own.
class BodyCutter {
 public:
  BodyCutter(ExportSource& source, std::string_view initial, std::size_t chunkBytes)
      : source_(source),
        chunkBytes_(std::max<std::size_t>(chunkBytes, 1)),
        room_(roomFor(source.size())) {
    pending_.reserve(partCapacity());
    pending_.assign(initial);
  }

  bool atEnd() const { return finished_; }

  /// Whether the body ended before </HealthData>; known once atEnd().
  bool truncated() const { return truncated_; }

  const std::string& indent() const { return indent_; }

  /// Takes back the memory of a parsed part, so that it serves the next parts.
  void recycle(PartBytes bytes, LineIndex lines) {
    if (spare_.size() < 4) {
      bytes.clear();
      lines.clear();
      spare_.push_back(Spare{std::move(bytes), std::move(lines)});
    }
  }

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
    auto spare = takeSpare();
    ExportChunk chunk;
    chunk.lines = std::move(spare.lines);
    if (eof_ && (pending_.size() < chunkBytes_ || !cutAt())) {
      chunk.bytes = std::move(pending_);
      finished_ = true;
      endBody(chunk);
    } else {
      const auto cut = *cutAt();
      cutDone();
      chunk.bytes = std::move(pending_);
      pending_ = std::move(spare.bytes);
      pending_.assign(viewOf(chunk.bytes).substr(cut));
      chunk.bytes.resize(cut);
    }
    return Result<ExportChunk>::success(std::move(chunk));
  }

 private:
  struct Spare {
    PartBytes bytes;
    LineIndex lines;
  };

  // Reads into room made at the end of `pending_`. The room follows what the source returns: a
  // whole block from files and archives, a little more than the last read from sources that
  // return a few bytes at a time.
  Status fill() {
    const auto old = pending_.size();
    pending_.resize(old + room_);
    auto got = source_.read(pending_.data() + old, room_);
    if (got.isFailure()) {
      pending_.resize(old);
      return Status::failure(got.error());
    }
    const auto size = got.value();
    pending_.resize(old + size);
    eof_ = size == 0;
    room_ = size == room_ ? std::min(2 * room_, kReadBlock)
                          : std::clamp(2 * size, kSmallestRoom, kReadBlock);
    return Status::success();
  }

  // Room for the first read: a block, or the whole source when it says it is smaller (a small
  // file then costs no block-sized buffers).
  static std::size_t roomFor(std::uint64_t sourceSize) {
    return sourceSize == 0 ? kReadBlock
                           : static_cast<std::size_t>(std::clamp<std::uint64_t>(
                                 sourceSize + 1, kSmallestRoom, kReadBlock));
  }

  // Room for a part and the reads that end it, so that the bytes never move while they grow.
  std::size_t partCapacity() const {
    const auto sourceSize = source_.size();
    const auto part =
        sourceSize == 0
            ? chunkBytes_
            : static_cast<std::size_t>(std::min<std::uint64_t>(chunkBytes_, sourceSize));
    return part + 2 * room_;
  }

  // The memory of a parsed part, or new memory with room for a part.
  Spare takeSpare() {
    if (spare_.empty()) {
      Spare fresh;
      fresh.bytes.reserve(partCapacity());
      return fresh;
    }
    auto spare = std::move(spare_.back());
    spare_.pop_back();
    return spare;
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
      const auto record = findLast(viewOf(pending_), "<Record");
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
    const auto close = findLast(viewOf(chunk.bytes), "</HealthData");
    if (close == std::string::npos) {
      truncated_ = true;
      return;
    }
    chunk.bytes.resize(close);
  }

  ExportSource& source_;
  PartBytes pending_;
  std::size_t chunkBytes_;
  std::string indent_;
  bool indentKnown_ = false;
  bool eof_ = false;
  bool finished_ = false;
  bool truncated_ = false;
  std::vector<Spare> spare_;
  std::size_t room_;         ///< bytes asked of the source by the next read
  std::size_t scanned_ = 0;  ///< pending bytes already looked at by cutAt()
  std::optional<std::size_t> cut_;
};

// A parsed part with its memory, which goes back to the cutter.
struct ParsedPart {
  ChunkResult result;
  PartBytes bytes;
  LineIndex lines;
};

ParsedPart parsePart(ExportChunk chunk, const ChunkContext& context) {
  auto result = parseChunk(chunk, context);
  return ParsedPart{std::move(result), std::move(chunk.bytes), std::move(chunk.lines)};
}

// Parses parts, a few at a time on threads of their own, and delivers the results in file
// order on the calling thread. What is still in flight when it goes is waited for, not
// delivered: call drain() at the end.
class PartPipeline {
 public:
  using Deliver = std::function<void(ParsedPart)>;

  PartPipeline(const ExportReadOptions& options, const ChunkContext& context, Deliver deliver)
      : threads_(options.threads),
        maxInFlight_(std::max(1u, options.threads) + 1),
        maxBytesInFlight_(maxInFlight_ * std::max<std::size_t>(options.chunkBytes, 1)),
        context_(context),
        deliver_(std::move(deliver)) {}

  PartPipeline(const PartPipeline&) = delete;
  PartPipeline& operator=(const PartPipeline&) = delete;

  // One part more in flight than `threads`: while the calling thread delivers the oldest
  // result and cuts the next part, `threads` parts are still being parsed, so the cores never
  // wait for it (the import's wall time drops by a seventh on two cores). The bytes in flight
  // are held to as many parts of the usual size, so that the 64 MiB parts of a body that
  // cannot be cut are parsed one at a time and memory does not grow with them. A small part is
  // parsed on the calling thread: starting a thread would cost more than it saves.
  void add(ExportChunk chunk) {
    const auto bytes = chunk.bytes.size();
    if (threads_ <= 1 || bytes < kSmallestThreadedPart) {
      drain();
      deliver_(parsePart(std::move(chunk), context_));
      return;
    }
    inFlight_.push_back(PartInFlight{
        std::async(std::launch::async, parsePart, std::move(chunk), std::cref(context_)), bytes});
    bytesInFlight_ += bytes;
    while (!inFlight_.empty() &&
           (inFlight_.size() >= maxInFlight_ || bytesInFlight_ > maxBytesInFlight_)) {
      deliverOldest();
    }
  }

  /// Delivers every part in flight.
  void drain() {
    while (!inFlight_.empty()) {
      deliverOldest();
    }
  }

 private:
  static constexpr std::size_t kSmallestThreadedPart = std::size_t{64} << 10;

  struct PartInFlight {
    std::future<ParsedPart> parsed;
    std::size_t bytes = 0;
  };

  void deliverOldest() {
    auto oldest = std::move(inFlight_.front());
    inFlight_.pop_front();
    bytesInFlight_ -= oldest.bytes;
    deliver_(oldest.parsed.get());
  }

  unsigned threads_;
  std::size_t maxInFlight_;
  std::size_t maxBytesInFlight_;
  const ChunkContext& context_;
  Deliver deliver_;
  std::deque<PartInFlight> inFlight_;
  std::size_t bytesInFlight_ = 0;
};

// Hands parsed parts to the sink in file order, and their reports, whose lines count from
// the part's first, to the export's report.
class Delivery {
 public:
  Delivery(ExportSink& sink, ExportReport& report, std::uint64_t firstLine)
      : sink_(sink), report_(report), line_(firstLine) {}

  void operator()(ParsedPart& part) {
    auto& result = part.result;
    if (result.characteristics) {
      sink_.characteristics(std::move(*result.characteristics));
    }
    if (!result.batch.empty()) {
      sink_.records(std::move(result.batch));
    }
    report_.merge(result.report, line_ - 1);
    line_ += part.lines.total();
  }

  /// The line on which the next part starts.
  std::uint64_t line() const { return line_; }

 private:
  ExportSink& sink_;
  ExportReport& report_;
  std::uint64_t line_;
};

// The prologue as read: the bytes up to the root start tag and a little beyond, and what the
// scan found in them.
struct Prologue {
  std::string head;
  PrologueScan scan;
  LineIndex lines;  ///< also replaced the forbidden controls, as in the body
  std::uint64_t controlsReplaced = 0;
};

// Reads until the root start tag shows (or the file or the prologue's limit ends).
Result<Prologue> readPrologue(ExportSource& source) {
  Prologue prologue;
  auto& head = prologue.head;
  // The prologue of an export is about 10 KiB; a small file is read whole.
  const auto step = static_cast<std::size_t>(
      std::clamp<std::uint64_t>(source.size() + 1, kSmallestRoom, kPrologueStep));
  bool eof = false;
  while (prologue.scan.status == PrologueScan::Status::needMore && !eof &&
         head.size() < kPrologueLimit) {
    const auto old = head.size();
    head.resize(old + step);
    auto got = source.read(head.data() + old, head.size() - old);
    if (got.isFailure()) {
      return Result<Prologue>::failure(got.error());
    }
    head.resize(old + got.value());
    eof = got.value() == 0;
    prologue.controlsReplaced += prologue.lines.extendAndClean(head.data(), old, head.size());
    prologue.scan = scanPrologue(head);
  }
  return Result<Prologue>::success(std::move(prologue));
}

// True for the names UTF-8 goes by, and for no name at all (XML's default).
bool isUtf8Name(std::string_view encoding) {
  std::string lower(encoding);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower.empty() || lower == "utf-8" || lower == "utf8";
}

// An error when the prologue shows no export.
std::optional<Error> notAnExport(const Prologue& prologue, const ExportSource& source) {
  const PrologueScan& scan = prologue.scan;
  // The Health app writes UTF-8; a file converted to UTF-16 on the way shows its byte order mark.
  if (prologue.head.starts_with("\xFF\xFE") || prologue.head.starts_with("\xFE\xFF")) {
    return exportError(ExportErrorCode::notAnExport,
                       source.description() +
                           " is UTF-16 text; exports are read as the Health app writes them, in "
                           "UTF-8: convert it first (iconv -f UTF-16 -t UTF-8)");
  }
  if (scan.status != PrologueScan::Status::found) {
    return exportError(
        ExportErrorCode::notAnExport,
        source.description() + " is not an Apple Health export: no XML root element");
  }
  if (scan.rootName != "HealthData") {
    return exportError(ExportErrorCode::notAnExport,
                       source.description() +
                           " is not an Apple Health export: its root element is <" + scan.rootName +
                           ">, not <HealthData>");
  }
  return std::nullopt;
}

// Replaces the forbidden controls at the start of the body ahead of its parser, so that the
// export's date can be read there first; returns how many it replaced.
std::uint64_t cleanHead(PartBytes& bytes) {
  LineIndex scratch;
  return scratch.extendAndClean(bytes.data(), 0, std::min<std::size_t>(bytes.size(), 1u << 16));
}

// Reads the body in parts into `sink`. Its first part starts on line `firstLine`.
Status readBody(BodyCutter& cutter, std::uint64_t firstLine, const ExportReadOptions& options,
                ExportSink& sink, ExportReport& report) {
  ChunkContext context;
  context.sources = &options.sources;
  Delivery deliver(sink, report, firstLine);
  PartPipeline parts(options, context, [&](ParsedPart part) {
    deliver(part);
    cutter.recycle(std::move(part.bytes), std::move(part.lines));
  });
  bool first = true;
  while (!cutter.atEnd()) {
    auto chunk = cutter.next();
    if (chunk.isFailure()) {
      parts.drain();
      return Status::failure(
          exportError(ExportErrorCode::readFailed, chunk.error().message() + " after " +
                                                       std::to_string(report.recordsRead) +
                                                       " records had been read"));
    }
    auto part = std::move(chunk).value();
    if (first) {
      // The export date comes first in the body; records after it are dated wrongly.
      report.noteMany(ExportIssue::controlCharacters, cleanHead(part.bytes));
      context.exportDate =
          ExportDate::parse(findExportDateValue(viewOf(part.bytes).substr(0, 1u << 16)));
      context.indent = cutter.indent();
      first = false;
    }
    parts.add(std::move(part));
  }
  parts.drain();
  if (cutter.truncated()) {
    report.note(ExportIssue::truncated, deliver.line());
  }
  return Status::success();
}

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
  auto read = readPrologue(source);
  if (read.isFailure()) {
    return R::failure(read.error());
  }
  auto prologue = std::move(read).value();
  if (const auto error = notAnExport(prologue, source)) {
    return R::failure(*error);
  }
  ExportReport report;
  if (prologue.controlsReplaced > 0) {
    report.noteMany(ExportIssue::controlCharacters, prologue.controlsReplaced);
  }
  if (const std::string encoding = declaredEncoding(prologue.head); !isUtf8Name(encoding)) {
    report.note(ExportIssue::otherEncoding, 1, encoding);
  }
  if (prologue.scan.rootIsEmpty) {
    return R::success(std::move(report));
  }
  const auto bodyStart = prologue.scan.bodyStart;
  const auto firstLine = 1 + prologue.lines.feedsBefore(bodyStart);
  BodyCutter cutter(source, std::string_view(prologue.head).substr(bodyStart), options_.chunkBytes);
  prologue = Prologue();  // its memory is of no more use
  if (auto body = readBody(cutter, firstLine, options_, sink, report); body.isFailure()) {
    return R::failure(body.error());
  }
  return R::success(std::move(report));
}

}  // namespace velk::ingest
