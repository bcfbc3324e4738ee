// Stopping long exact work when its caller asks. Work that can run for seconds calls
// `check_interrupt()` between its rounds (primes, lifting steps, batches of subsets). Whoever
// runs the work may install, for its own thread, a function that says whether to stop; the
// Python layer installs one while the interpreter is released, which retakes the interpreter
// for a moment to run pending signal handlers, so Ctrl-C raises KeyboardInterrupt. That
// function runs at most once per interval, so a round costs one clock read, and once it has
// said stop every later check fails at once, so the work unwinds through its failures.
#pragma once

#include <chrono>

#include "failure.hpp"

namespace tv {

class InterruptScope {
 public:
  // True when the work should stop. `context` is handed back unchanged.
  using Check = bool (*)(void* context);
  static constexpr std::chrono::milliseconds kInterval{50};

  InterruptScope(Check check, void* context);
  ~InterruptScope();
  InterruptScope(const InterruptScope&) = delete;
  InterruptScope& operator=(const InterruptScope&) = delete;

 private:
  friend Status check_interrupt();
  Check check_;
  void* context_;
  InterruptScope* outer_;
  std::chrono::steady_clock::time_point next_;
  bool stopped_ = false;
};

// The failure "interrupted" (kind Other) when the innermost scope of this thread says stop;
// success when it does not, when its interval has not passed, or when there is no scope.
Status check_interrupt();

}  // namespace tv
