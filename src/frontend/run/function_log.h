// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The start and end lines of operations, printed when function logging is on.
#pragma once

#include <string>

namespace halyard {

/// Prints "Start <name>---...+" when made and "End   <name>---...+" when it goes, each only if the
/// flag is on at that moment. std::exit leaves automatic objects alone, so an operation that ends
/// the process prints no end line.
class FunctionLog {
 public:
  /// Blanks between "End" and the name. Kept: two operations have one, all others three.
  enum class Blanks { one, three };

  explicit FunctionLog(std::string name, Blanks blanks = Blanks::three);
  ~FunctionLog();
  FunctionLog(const FunctionLog&) = delete;
  FunctionLog& operator=(const FunctionLog&) = delete;

  /// For the few returns that are fixed to print no end line.
  void dropEnd() { dropped_ = true; }

 private:
  std::string name_;
  Blanks blanks_;
  bool dropped_ = false;
};

}  // namespace halyard
