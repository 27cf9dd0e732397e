// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The progress log: dated records of what a run is doing, for administrators and their tools.
#pragma once

#include <string>

#include "base/text.h"
#include "host/files/files.h"

namespace halyard {

/// The progress log, opened for one run and kept open: a log that is replaced meanwhile keeps its
/// file, one that is removed is not made again. A missing log takes nothing and says nothing.
class ProgressLog {
 public:
  ProgressLog() = default;  ///< Not opened: takes nothing.
  static ProgressLog open();

  /// A run-wide step: two lines, the date and the message. Only while the progress flag is on.
  void step(const std::string& message) const;
  /// A step of one service; an absent name shows as (null).
  void step(const MaybeString& service, const std::string& message) const;
  /// A failure, whatever the progress flag says.
  void error(const std::string& message) const;
  /// Text as it is, while the progress flag is on.
  void text(const std::string& record) const;

 private:
  host::AppendFile file_;
};

}  // namespace halyard
