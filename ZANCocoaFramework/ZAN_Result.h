#pragma once

#include <string>
#include <utility>
#include <variant>

namespace corvana {

enum class ErrorKind {
  absent,       ///< there is nothing of that name; often an outcome rather than a failure
  unreadable,   ///< it is there and cannot be read
  unwritable,   ///< it cannot be written, renamed, locked or removed
  damaged,      ///< its contents are not what they should be
  limit,        ///< refused because it passes a bound on size, depth or number
  refused,      ///< not permitted, or wrong words
  unavailable,  ///< a service or a program that is needed is not there
};

/// Why something could not be done. `text` names the thing first: "path: reason".
struct Error {
  ErrorKind kind = ErrorKind::damaged;
  std::string text;
};

/// A value, or the reason why there is none. Reading the side that is not there is a programming
/// error.
template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : mState(std::in_place_index<0>, std::move(value)) {}
  Result(Error error) : mState(std::in_place_index<1>, std::move(error)) {}

  explicit operator bool() const { return mState.index() == 0; }
  const T& value() const& { return std::get<0>(mState); }
  T& value() & { return std::get<0>(mState); }
  T&& value() && { return std::get<0>(std::move(mState)); }
  const T& operator*() const& { return value(); }
  T& operator*() & { return value(); }
  T&& operator*() && { return std::move(*this).value(); }
  const T* operator->() const { return &value(); }
  T* operator->() { return &value(); }
  T valueOr(T other) const { return *this ? value() : std::move(other); }
  const Error& error() const { return std::get<1>(mState); }

 private:
  std::variant<T, Error> mState;
};

/// Done, or the reason why not.
class [[nodiscard]] Outcome {
 public:
  Outcome() = default;
  Outcome(Error error) : mError(std::move(error)), mFailed(true) {}

  explicit operator bool() const { return !mFailed; }
  const Error& error() const { return mError; }

 private:
  Error mError;
  bool mFailed = false;
};

}  // namespace corvana
