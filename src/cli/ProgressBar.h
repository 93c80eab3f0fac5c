// The progress line of long commands on stderr: for `velk import` a bar, bytes read of the whole,
// records stored, rate and time left; for the day table and the report a bar, days done of the
// range and time left. Drawn only on a terminal (a log file should not fill with carriage
// returns), at most ten times a second, and always once more when the work has finished.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <ostream>
#include <string>

#include "velk/ExportImport.h"

namespace velk::cli {

class ProgressBar {
 public:
  using Clock = std::function<std::chrono::steady_clock::time_point()>;

  /// Draws on `out` when `enabled`; the tool passes `ProgressBar::stderrIsTerminal()`.
  ProgressBar(std::ostream& out, bool enabled, Clock clock = std::chrono::steady_clock::now);

  /// Usable as the import's ImportProgressHandler.
  void update(const ingest::ImportProgress& progress);

  /// Usable as the day table's DayProgress: `done` of `total` days.
  void updateDays(std::size_t done, std::size_t total);

  /// Ends the line, so that what follows starts on a line of its own.
  void finish();

  /// The line for `progress` after `elapsedSeconds`, without the leading carriage return.
  static std::string render(const ingest::ImportProgress& progress, double elapsedSeconds);

  /// The line for `done` of `total` days after `elapsedSeconds`.
  static std::string renderDays(std::size_t done, std::size_t total, double elapsedSeconds);

  static bool stderrIsTerminal();

 private:
  /// Draws the line that `lineAt` makes of the seconds elapsed, unless one was drawn less than
  /// the redraw interval ago and the work is not `finished`.
  void draw(bool finished, const std::function<std::string(double elapsedSeconds)>& lineAt);

  std::ostream& out_;
  bool enabled_;
  Clock clock_;
  std::chrono::steady_clock::time_point started_;
  std::chrono::steady_clock::time_point lastDrawn_{};
  bool drawn_ = false;
  std::size_t lastLength_ = 0;
};

}  // namespace velk::cli
