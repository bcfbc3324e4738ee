#include "interrupt.hpp"

namespace tv {
namespace {

// The innermost scope of this thread; scopes nest like the calls that make them.
thread_local InterruptScope* current_scope = nullptr;

}  // namespace

InterruptScope::InterruptScope(Check check, void* context)
    : check_(check), context_(context), outer_(current_scope), next_(std::chrono::steady_clock::now() + kInterval) {
  current_scope = this;
}

InterruptScope::~InterruptScope() { current_scope = outer_; }

Status check_interrupt() {
  InterruptScope* scope = current_scope;
  if (scope == nullptr) return {};
  if (!scope->stopped_) {
    const auto now = std::chrono::steady_clock::now();
    if (now < scope->next_) return {};
    scope->stopped_ = scope->check_(scope->context_);
    scope->next_ = std::chrono::steady_clock::now() + InterruptScope::kInterval;
  }
  if (scope->stopped_) return other_failure("interrupted");
  return {};
}

}  // namespace tv
