// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Who holds the pid file that keeps two runs of Halyard apart.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace halyard::hostkit {

/// A run that takes longer is told as a fault: more likely it waits for something for ever.
inline constexpr std::chrono::hours kLongestRun{24};

struct PidFileState {
  enum class Owner {
    none,      ///< There is no pid file.
    halyard,   ///< The process is a running Halyard, or a helmsman that keeps Halyard out, not
               ///< younger than the file.
    gone,      ///< There is no such process, or the file names none and no Halyard runs.
    stranger,  ///< The number belongs to another program, or a later run of it, by now.
    unknown,   ///< The process runs, or may run, and cannot be told apart.
  };
  Owner owner = Owner::none;
  int process = 0;      ///< 0 when the file does not say.
  std::string command;  ///< The command word of that run; "helmsman undo" of helmsman's.
  /// Of a Halyard that runs: a signal has stopped it, and no helmsman is at work on it.
  bool isStopped = false;
  std::chrono::seconds runsFor{};  ///< Of a Halyard that runs.

  /// A Halyard that will not end by itself, as far as anybody can tell.
  bool isStuck() const { return owner == Owner::halyard && (isStopped || runsFor >= kLongestRun); }
  bool isLeftover() const { return owner == Owner::gone || owner == Owner::stranger; }
};

/// The number and the command word of a pid file's text; 0 and empty when it has another form.
PidFileState parsePidFile(std::string_view text);

PidFileState pidFileState();

/// Removes the pid file when it is a leftover, and never another one: the state is read again,
/// under a lock, and what is removed is the file that was read. True when this call removed it, on
/// disk.
bool removeLeftoverPidFile();

/// A sentence about the state, for messages.
std::string describe(const PidFileState& state);

}  // namespace halyard::hostkit
