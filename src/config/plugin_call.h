// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// One call of a service's plug-in: the one way by which backup, restore, browse and verify make it.
#pragma once

#include <string>
#include <vector>

#include "base/text.h"
#include "host/process/task.h"

namespace halyard {

struct PluginCall {
  MaybeString executable;
  std::vector<std::string> arguments;

  /// `words` count up to, and without, the first absent one.
  PluginCall(MaybeString program, const std::vector<MaybeString>& words);

  /// Adds "-opt" and the value at the end; nothing when it is absent.
  void addOption(const MaybeString& value);

  /// Runs it without its error stream. Standard output goes to the sink, or is captured without.
  host::TaskResult run(const host::OutputSink& output = {}) const;
  /// Runs it for what it does: its output is captured in debug mode only, for the caller's dump.
  host::TaskResult runUnheard() const;
};

}  // namespace halyard
