#pragma once

#include <os/export.h>

#include <new>
#include <type_traits>
#include <utility>

namespace KELP::OS {

namespace expected_detail {

/**
 * Ends the process with a fatal log line "CHECK:LINE PANIC" under the library's tag.
 *
 * @param check name of the check that failed.
 * @param line  the number that belongs to the check.
 */
[[noreturn]] KELP_EXPORT void panic(const char* check, unsigned line);

/** How a result is stored. One kind is in use: a union of both types with a tag beside it. */
enum class StorageType : int { TaggedUnion = 2 };

/** What a result holds at the moment. */
enum class State : int {
  Empty = 0,  ///< Nothing; only while an assignment is under way.
  Value = 1,
  Error = 2,
};

template <typename T, typename E, StorageType kind>
class ExpectedStorage;

/**
 * The union of a value and an error with the tag that says which of them lives.
 *
 * An assignment destroys what is held, is empty for a moment, and then takes the new content; when
 * the move of the new content throws, the storage stays empty, and both accessors of the result
 * refuse it.
 */
template <typename T, typename E>
class ExpectedStorage<T, E, StorageType::TaggedUnion> {
  static constexpr bool kNothrowMove =
      std::is_nothrow_move_constructible_v<T> && std::is_nothrow_move_constructible_v<E>;

 public:
  explicit ExpectedStorage(const T& value) : value_(value), state_(State::Value) {}
  explicit ExpectedStorage(T&& value) : value_(std::move(value)), state_(State::Value) {}
  explicit ExpectedStorage(const E& error) : error_(error), state_(State::Error) {}
  explicit ExpectedStorage(E&& error) : error_(std::move(error)), state_(State::Error) {}

  ExpectedStorage(const ExpectedStorage& other) : none_() { construct(other); }
  ExpectedStorage(ExpectedStorage&& other) noexcept(kNothrowMove) : none_() {
    construct(std::move(other));
  }

  ExpectedStorage& operator=(const ExpectedStorage& other) {
    if (this != &other) {
      assign(ExpectedStorage(other));
    }
    return *this;
  }
  ExpectedStorage& operator=(ExpectedStorage&& other) noexcept(kNothrowMove) {
    if (this != &other) {
      assign(std::move(other));
    }
    return *this;
  }

  ~ExpectedStorage() { clear(); }

  /** Replaces the content by that of @p other. */
  void assign(ExpectedStorage&& other) {
    clear();
    construct(std::move(other));
  }

  /** Replaces the content by @p error. */
  void assignError(E&& error) {
    clear();
    new (&error_) E(std::move(error));
    state_ = State::Error;
  }

  [[nodiscard]] State state() const { return state_; }
  [[nodiscard]] T& value() { return value_; }
  [[nodiscard]] const T& value() const { return value_; }
  [[nodiscard]] E& error() { return error_; }
  [[nodiscard]] const E& error() const { return error_; }

 private:
  struct None {};

  void clear() {
    const State held = std::exchange(state_, State::Empty);
    if (held == State::Value) {
      value_.~T();
    } else if (held == State::Error) {
      error_.~E();
    }
  }

  template <typename Other>
  void construct(Other&& other) {
    if (other.state_ == State::Value) {
      new (&value_) T(std::forward<Other>(other).value_);
    } else if (other.state_ == State::Error) {
      new (&error_) E(std::forward<Other>(other).error_);
    }
    state_ = other.state_;
  }

  union {
    None none_;
    T value_;
    E error_;
  };
  State state_ = State::Empty;
};

}  // namespace expected_detail

/**
 * The result of an operation that may fail: a value of type @p T, or an error of type @p E.
 *
 * A finished result always holds one of the two, so code that has seen has_value() return false may
 * take error() at once. Asking for the one that is not held is a programming error and ends the
 * process through the log's fatal assertion.
 *
 * An operation that only succeeds or fails returns an `expected<bool, E>` that holds true or an
 * error, never false: test has_value() (or the result itself), not the boolean.
 *
 * A plain value: copyable where both types are, and without any thread rule of its own. The value
 * of a result that was moved from is a moved-from value.
 *
 * @tparam T what success gives.
 * @tparam E what failure gives, another type.
 */
template <typename T, typename E>
class expected {
  static_assert(!std::is_same_v<T, E>, "a result could not tell its value from its error");

 public:
  using value_type = T;  ///< The type of the value.
  using error_type = E;  ///< The type of the error.

  /** A success. @param value what to hold. */
  expected(const T& value) : storage_(value) {}  // NOLINT(google-explicit-constructor)
  /** A success. @param value what to hold. */
  expected(T&& value) : storage_(std::move(value)) {}  // NOLINT(google-explicit-constructor)
  /** A failure. @param error what to hold. */
  expected(const E& error) : storage_(error) {}  // NOLINT(google-explicit-constructor)
  /** A failure. @param error what to hold. */
  expected(E&& error) : storage_(std::move(error)) {}  // NOLINT(google-explicit-constructor)

  /** Whether a value is held. @return true if so; otherwise there is an error. */
  [[nodiscard]] bool has_value() const { return storage_.state() == expected_detail::State::Value; }
  /** The same as has_value(), whatever the value is. @return true if a value is held. */
  explicit operator bool() const { return has_value(); }

  /**
   * The value. Ends the process ("requireValue:1066 PANIC") when none is held.
   *
   * @return the value itself.
   */
  [[nodiscard]] T& value() & {
    requireValue();
    return storage_.value();
  }
  /** @copydoc value() */
  [[nodiscard]] const T& value() const& {
    requireValue();
    return storage_.value();
  }
  /** @copydoc value() */
  [[nodiscard]] T&& value() && {
    requireValue();
    return std::move(storage_.value());
  }

  /**
   * The error. Ends the process ("requireError:1072 PANIC") when none is held.
   *
   * @return the error itself.
   */
  [[nodiscard]] E& error() & {
    requireError();
    return storage_.error();
  }
  /** @copydoc error() */
  [[nodiscard]] const E& error() const& {
    requireError();
    return storage_.error();
  }
  /** @copydoc error() */
  [[nodiscard]] E&& error() && {
    requireError();
    return std::move(storage_.error());
  }

  /** The same as value(), with the same check. @return the value itself. */
  [[nodiscard]] T& operator*() & { return value(); }
  /** @copydoc operator*() */
  [[nodiscard]] const T& operator*() const& { return value(); }
  /** @copydoc operator*() */
  [[nodiscard]] T&& operator*() && { return std::move(*this).value(); }
  /** A member of value(), with the same check. @return the value's address. */
  [[nodiscard]] T* operator->() { return &value(); }
  /** @copydoc operator->() */
  [[nodiscard]] const T* operator->() const { return &value(); }

 private:
  void requireValue() const {
    if (!has_value()) {
      expected_detail::panic("requireValue", 1066);
    }
  }
  void requireError() const {
    if (storage_.state() != expected_detail::State::Error) {
      expected_detail::panic("requireError", 1072);
    }
  }

  expected_detail::ExpectedStorage<T, E, expected_detail::StorageType::TaggedUnion> storage_;
};

}  // namespace KELP::OS
