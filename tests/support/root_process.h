// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Starts one program inside a private root and collects what it prints.
#pragma once

#include <string>
#include <vector>

#include "support/private_root.h"

namespace halyard::test {

/// Everything that a start in a root needs.
struct RootProcess {
  std::string folder;                    ///< The root, as the host sees it.
  std::string program;                   ///< Absolute path inside the root.
  std::vector<std::string> words;        ///< Word 0 and the arguments.
  std::vector<std::string> environment;  ///< "NAME=value".
  RunOptions options;
};

/// Runs it to its end. A time limit that is overrun ends the whole process group and fails the
/// test, and so does a start that was not possible.
CommandResult runInRoot(const RootProcess& process);

/// In a child between fork and exec: makes the folder the root folder. Needs root, or else a user
/// namespace, which it then enters. Returns false, with errno set, when neither is possible.
bool enterRoot(const std::string& folder, unsigned userId, unsigned groupId);

}  // namespace halyard::test
