#include "cli/ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace velk::cli {
namespace {

constexpr int kBarWidth = 24;
constexpr auto kRedrawInterval = std::chrono::milliseconds(100);

// `value` with `decimals` digits after the point.
std::string fixed(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string percent(double fraction) {
  char text[16];
  std::snprintf(text, sizeof text, "%3.0f%%", fraction * 100);
  return text;
}

std::string minutesAndSeconds(double seconds) {
  const auto whole = static_cast<long long>(std::llround(std::max(seconds, 0.0)));
  char text[32];
  std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
  return text;
}

std::string records(std::uint64_t count) {
  const auto value = static_cast<double>(count);
  if (count >= 1'000'000) {
    return fixed(value / 1e6, 1) + "M records";
  }
  if (count >= 10'000) {
    return fixed(value / 1e3, 0) + "k records";
  }
  return fixed(value, 0) + " records";
}

// "[######..................]  25%  " for a fraction of the whole.
std::string bar(double fraction) {
  fraction = std::clamp(fraction, 0.0, 1.0);
  const auto filled = static_cast<int>(fraction * kBarWidth);
  return "[" + std::string(static_cast<std::size_t>(filled), '#') +
         std::string(static_cast<std::size_t>(kBarWidth - filled), '.') + "] " + percent(fraction) +
         "  ";
}

}  // namespace

ProgressBar::ProgressBar(std::ostream& out, bool enabled, Clock clock)
    : out_(out), enabled_(enabled), clock_(std::move(clock)), started_(clock_()) {}

std::string ProgressBar::render(const ingest::ImportProgress& progress, double elapsedSeconds) {
  const double megabytes = static_cast<double>(progress.bytesRead) / 1e6;
  const double rate = elapsedSeconds > 0 ? megabytes / elapsedSeconds : 0;
  std::string line;
  if (progress.totalBytes > 0) {
    line = bar(static_cast<double>(progress.bytesRead) / static_cast<double>(progress.totalBytes)) +
           fixed(megabytes, 1) + "/" + fixed(static_cast<double>(progress.totalBytes) / 1e6, 1) +
           " MB  ";
  } else {
    line = fixed(megabytes, 1) + " MB  ";
  }
  line += records(progress.records);
  line += "  " + fixed(rate, 1) + " MB/s";
  if (progress.finished) {
    line += "  done in " + minutesAndSeconds(elapsedSeconds);
  } else if (progress.totalBytes > 0 && rate > 0) {
    const double left = static_cast<double>(progress.totalBytes -
                                            std::min(progress.totalBytes, progress.bytesRead)) /
                        1e6 / rate;
    line += "  ETA " + minutesAndSeconds(left);
  }
  return line;
}

std::string ProgressBar::renderDays(std::size_t done, std::size_t total, double elapsedSeconds) {
  const double fraction = total > 0 ? static_cast<double>(done) / static_cast<double>(total) : 1.0;
  std::string line = bar(fraction) + std::to_string(done) + "/" + std::to_string(total) + " days";
  if (done >= total) {
    line += "  done in " + minutesAndSeconds(elapsedSeconds);
  } else if (done > 0) {
    line += "  ETA " + minutesAndSeconds(elapsedSeconds / fraction - elapsedSeconds);
  }
  return line;
}

void ProgressBar::update(const ingest::ImportProgress& progress) {
  draw(progress.finished, [&progress](double elapsed) { return render(progress, elapsed); });
}

void ProgressBar::updateDays(std::size_t done, std::size_t total) {
  draw(done >= total, [=](double elapsed) { return renderDays(done, total, elapsed); });
}

void ProgressBar::draw(bool finished,
                       const std::function<std::string(double elapsedSeconds)>& lineAt) {
  if (!enabled_) {
    return;
  }
  const auto now = clock_();
  if (drawn_ && !finished && now - lastDrawn_ < kRedrawInterval) {
    return;
  }
  const std::string line = lineAt(std::chrono::duration<double>(now - started_).count());
  // Pad over the rest of a longer previous line.
  out_ << '\r' << line
       << std::string(lastLength_ > line.size() ? lastLength_ - line.size() : 0, ' ') << std::flush;
  lastLength_ = line.size();
  lastDrawn_ = now;
  drawn_ = true;
}

void ProgressBar::finish() {
  if (enabled_ && drawn_) {
    out_ << '\n' << std::flush;
    drawn_ = false;
  }
}

bool ProgressBar::stderrIsTerminal() {
  return ::isatty(STDERR_FILENO) == 1;
}

}  // namespace velk::cli
