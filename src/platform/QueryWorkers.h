// Query answers computed ahead of their turn.
//
// The health store hands its answers over one after another on its callback queue, in the order
// the queries were started, and the library's owners rely on that order. Computing an answer
// (reading the candidates, the predicate, the sort) depends on nothing before it, though, so the
// store offers each computation here when the query starts: helper threads compute waiting answers
// while the callback queue is still busy with earlier ones, and when an answer's turn comes the
// queue finishes it (computing it itself if no helper has begun it). Each answer is computed
// exactly once, and the answers still reach their handlers in the order the queries were started.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace velk::platform {

class QueryWorkers {
 public:
  /// One computation offered to the helpers.
  class Task;

  /// Starts `helpers` threads; with none, every computation runs at its turn, where finish() is
  /// called.
  explicit QueryWorkers(std::size_t helpers);
  /// Stops the helpers once the computations they have begun are done. Computations nobody has
  /// begun stay for finish().
  ~QueryWorkers();
  QueryWorkers(const QueryWorkers&) = delete;
  QueryWorkers& operator=(const QueryWorkers&) = delete;

  /// One helper per core beyond the first, or as many as the environment variable
  /// VELK_QUERY_HELPERS says (0: every answer is computed at its turn, on the callback queue).
  static std::size_t helpersForThisMachine();

  /// Offers `compute` to the helpers; the returned task is handed to finish() at its turn.
  std::shared_ptr<Task> offer(std::function<void()> compute);

  /// Returns once `task` has been computed: here, if no helper has begun it; otherwise after
  /// computing other waiting tasks here while the helper works (they are needed next). Call it
  /// exactly once per task.
  void finish(Task& task);

 private:
  struct Shared;
  static void help(std::shared_ptr<Shared> shared);

  std::shared_ptr<Shared> shared_;
  std::vector<std::thread> helpers_;
};

}  // namespace velk::platform
