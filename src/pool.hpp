// The one worker pool. It is a oneTBB arena made on first use and kept for the life of the
// process; its size is fixed then (RAYON_NUM_THREADS, then RAYON_RS_NUM_CPUS, then the number
// of logical processors). Every parallel loop in the system runs through these functions; the
// calling thread joins the work and returns when every part is done.
//
// Loops may nest: a body that starts another loop runs it in the same arena, and a waiting
// worker takes other tasks meanwhile. An InternalError thrown by any part is rethrown in the
// calling thread once the other parts have finished.
#pragma once

#include <atomic>
#include <cstddef>
#include <optional>
#include <utility>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_invoke.h>
#include <tbb/partitioner.h>
#include <tbb/task_arena.h>

#include "failure.hpp"

namespace tv::pool {

// The size the pool is given from the environment; exposed for tests of the rule.
// `num_threads` and `num_cpus` are the two variables' texts, null when unset.
std::size_t size_from_environment(const char* num_threads, const char* num_cpus, std::size_t processors);

// The arena, started on first call.
tbb::task_arena& arena();

// The size of the pool; starts it.
inline std::size_t thread_count() { return static_cast<std::size_t>(arena().max_concurrency()); }

// Runs `work` inside the pool; the calling thread takes part.
template <class Work>
decltype(auto) run(Work&& work) {
  return arena().execute(std::forward<Work>(work));
}

// Calls body(i) for every i in [0, n) with one task per index (rows, bands, frames).
template <class Body>
void for_each_task(std::size_t n, Body&& body) {
  if (n == 0) return;
  run([&] {
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, n, 1),
                      [&](const tbb::blocked_range<std::size_t>& r) {
                        for (std::size_t i = r.begin(); i != r.end(); ++i) body(i);
                      },
                      tbb::simple_partitioner());
  });
}

// Calls body(i) for every i in [0, n), letting the pool choose chunk sizes.
template <class Body>
void for_each(std::size_t n, Body&& body) {
  if (n == 0) return;
  run([&] {
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, n), [&](const tbb::blocked_range<std::size_t>& r) {
      for (std::size_t i = r.begin(); i != r.end(); ++i) body(i);
    });
  });
}

// Calls body(begin, end) over leaves of whole rows. oneTBB's auto partitioner cuts a range in
// halves while its budget (the pool size, renewed when a worker steals a half) lasts, so a
// leaf holds many rows and a body can allocate its scratch once per leaf. One row runs on the
// calling thread.
template <class Body>
void for_each_leaf(std::size_t rows, Body&& body) {
  if (rows == 0) return;
  if (rows == 1) {
    body(std::size_t{0}, std::size_t{1});
    return;
  }
  run([&] {
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, rows, 1),
                      [&](const tbb::blocked_range<std::size_t>& r) { body(r.begin(), r.end()); },
                      tbb::auto_partitioner());
  });
}

// Like for_each, for a body that returns a Status: the first failure met stops the loop as
// soon as the other parts look at the stop flag, and is returned. When several parts fail at
// once, which failure is returned is not defined.
template <class Body>
Status try_for_each(std::size_t n, Body&& body) {
  std::atomic<bool> claimed{false};
  std::atomic<bool> stop{false};
  std::optional<Failure> first;
  for_each(n, [&](std::size_t i) {
    if (stop.load(std::memory_order_relaxed)) return;
    Status status = body(i);
    if (status.ok()) return;
    stop.store(true, std::memory_order_relaxed);
    // Only the part that claims the slot writes it; the join orders that write before the read.
    if (!claimed.exchange(true, std::memory_order_acq_rel)) first = std::move(status).failure();
  });
  if (first) return std::move(*first);
  return {};
}

// Fork-join of two halves.
template <class Left, class Right>
void invoke_both(Left&& left, Right&& right) {
  run([&] { tbb::parallel_invoke(std::forward<Left>(left), std::forward<Right>(right)); });
}

}  // namespace tv::pool
