// Failures below the Python layer are values: every operation that can fail returns a
// Result<T>, holding either its value or a Failure (a kind and an owned message). The
// bindings turn a Failure into a Python exception after the interpreter is retaken.
//
// A broken internal invariant is different: it is not an answer to bad input but a bug.
// It is thrown as InternalError, carried out of worker threads by the pool, and raised at
// the module boundary as an exception that derives directly from BaseException.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

namespace tv {

// Numeric order is part of the interface: the bindings map kinds to exception types.
enum class FailureKind : std::uint8_t { Range, Division, Type, Parse, State, Other };

struct Failure {
  FailureKind kind;
  std::string message;
};

inline Failure range_failure(std::string message) { return {FailureKind::Range, std::move(message)}; }
inline Failure division_failure(std::string message) { return {FailureKind::Division, std::move(message)}; }
inline Failure parse_failure(std::string message) { return {FailureKind::Parse, std::move(message)}; }
inline Failure state_failure(std::string message) { return {FailureKind::State, std::move(message)}; }
inline Failure other_failure(std::string message) { return {FailureKind::Other, std::move(message)}; }

// A value or a Failure. Construct from either; test with ok() or operator bool.
template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : state_(std::in_place_index<0>, std::move(value)) {}
  Result(Failure failure) : state_(std::in_place_index<1>, std::move(failure)) {}
  template <class U>
    requires(std::is_constructible_v<T, U &&> && !std::is_same_v<std::remove_cvref_t<U>, T> &&
             !std::is_same_v<std::remove_cvref_t<U>, Failure>)
  Result(U&& value) : state_(std::in_place_index<0>, std::forward<U>(value)) {}

  bool ok() const { return state_.index() == 0; }
  explicit operator bool() const { return ok(); }

  T& value() & { return std::get<0>(state_); }
  const T& value() const& { return std::get<0>(state_); }
  T&& value() && { return std::get<0>(std::move(state_)); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }

  const Failure& failure() const& { return std::get<1>(state_); }
  Failure&& failure() && { return std::get<1>(std::move(state_)); }

 private:
  std::variant<T, Failure> state_;
};

// The result of an operation that yields nothing but can fail.
template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Failure failure) : failure_(std::move(failure)), failed_(true) {}

  bool ok() const { return !failed_; }
  explicit operator bool() const { return ok(); }
  const Failure& failure() const& { return failure_; }
  Failure&& failure() && { return std::move(failure_); }

 private:
  Failure failure_{FailureKind::Other, {}};
  bool failed_ = false;
};

using Status = Result<void>;

// A broken invariant: a bug, never a reaction to input.
class InternalError : public std::exception {
 public:
  explicit InternalError(std::string message) : message_(std::move(message)) {}
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  std::string message_;
};

[[noreturn]] inline void fail_invariant(std::string message) { throw InternalError(std::move(message)); }

}  // namespace tv

#define TV_CONCAT_INNER(a, b) a##b
#define TV_CONCAT(a, b) TV_CONCAT_INNER(a, b)

// Checks an internal invariant; a false condition ends the current call, not the process.
#define TV_ENSURE(condition, message)                         \
  do {                                                        \
    if (!(condition)) ::tv::fail_invariant(message);          \
  } while (false)

// Evaluates a Result-returning expression; on failure returns the Failure from the enclosing
// function, otherwise binds the value to `decl` (for example `auto x` or `Fraction y`).
#define TV_TRY(decl, expression) TV_TRY_IMPL(decl, expression, TV_CONCAT(tv_try_, __LINE__))
#define TV_TRY_IMPL(decl, expression, tmp)           \
  auto tmp = (expression);                           \
  if (!tmp.ok()) return std::move(tmp).failure();    \
  decl = std::move(tmp).value()

// The same for a Status-returning expression.
#define TV_CHECK(expression)                                               \
  do {                                                                     \
    auto tv_check_result = (expression);                                   \
    if (!tv_check_result.ok()) return std::move(tv_check_result).failure(); \
  } while (false)
