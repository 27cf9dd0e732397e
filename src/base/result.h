// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a call that can fail answers below the commands: a value, or the error that prevented it.
//
// In the style of C++23's std::expected. The error number travels with the answer: nobody reads
// errno after a call of ours, where anything in between may have changed it.
#pragma once

#include <cassert>
#include <string>
#include <utility>
#include <variant>

namespace halyard {

/// Why something failed.
struct Error {
  int code = 0;         ///< An errno value, never 0.
  std::string tried{};  ///< What was tried: usually the path it was tried on.
};

/// A value or an Error. The value may only be taken when there is one.
template <typename Value>
class [[nodiscard]] Result {
 public:
  Result(Value value) : content_(std::in_place_index<0>, std::move(value)) {}  // NOLINT(*explicit*)
  Result(Error error) : content_(std::in_place_index<1>, std::move(error)) {}  // NOLINT(*explicit*)

  explicit operator bool() const { return content_.index() == 0; }
  Value& operator*() { return std::get<0>(content_); }
  const Value& operator*() const { return std::get<0>(content_); }
  Value* operator->() { return &std::get<0>(content_); }
  const Value* operator->() const { return &std::get<0>(content_); }
  const Error& error() const { return std::get<1>(content_); }

 private:
  std::variant<Value, Error> content_;
};

/// The answer of a call that has no value to give.
template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  // NOLINTNEXTLINE(google-explicit-constructor)
  Result(Error error) : error_(std::move(error)) { assert(error_.code != 0); }

  explicit operator bool() const { return error_.code == 0; }
  const Error& error() const { return error_; }

 private:
  Error error_;
};

using Status = Result<void>;

/// The answer for an error number: done for 0.
inline Status outcomeOf(int code, std::string tried) {
  if (code == 0) return {};
  return Error{code, std::move(tried)};
}

}  // namespace halyard
