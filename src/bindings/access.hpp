// The access state of an object: one atomic word, 0 when free, all ones when held
// exclusively, any other value counting shared holders. A call that finds its object taken
// fails at once; nothing ever waits for an object.
#pragma once

#include <atomic>
#include <cstdint>

#include "bindings/errors.hpp"

namespace tv::py {

enum class Access { Shared, Exclusive };

class AccessState {
 public:
  bool try_acquire(Access access) {
    if (access == Access::Exclusive) {
      std::uint64_t expected = 0;
      return word_.compare_exchange_strong(expected, kExclusive, std::memory_order_acquire);
    }
    std::uint64_t current = word_.load(std::memory_order_relaxed);
    do {
      if (current == kExclusive) return false;
    } while (!word_.compare_exchange_weak(current, current + 1, std::memory_order_acquire, std::memory_order_relaxed));
    return true;
  }

  void release(Access access) {
    if (access == Access::Exclusive)
      word_.store(0, std::memory_order_release);
    else
      word_.fetch_sub(1, std::memory_order_release);
  }

 private:
  static constexpr std::uint64_t kExclusive = ~std::uint64_t{0};
  std::atomic<std::uint64_t> word_{0};
};

// Holds access for a scope. When it cannot be had, RuntimeError is raised and the borrow is
// empty: "Already borrowed" for exclusive access, "Already mutably borrowed" for shared.
class Borrow {
 public:
  Borrow(AccessState& state, Access access) : state_(&state), access_(access) {
    if (!state.try_acquire(access)) {
      state_ = nullptr;
      PyErr_SetString(PyExc_RuntimeError,
                      access == Access::Exclusive ? "Already borrowed" : "Already mutably borrowed");
    }
  }
  ~Borrow() {
    if (state_ != nullptr) state_->release(access_);
  }
  Borrow(const Borrow&) = delete;
  Borrow& operator=(const Borrow&) = delete;

  explicit operator bool() const { return state_ != nullptr; }

 private:
  AccessState* state_;
  Access access_;
};

}  // namespace tv::py
