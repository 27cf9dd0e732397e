// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The system calls of a program in a private root, for tests of their order.
//
// What is on the disk after a power cut is decided by the order of writes, syncs and renames. A
// test that only looks at the files afterwards finds them whole with every sync deleted.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/private_root.h"

namespace halyard::test {

/// The calls that changed or synced something, in the order in which they ended, of the program and
/// of all that it started. Each is a line as strace(1) shows it, every descriptor with its path:
/// `fsync(5</srv/data>) = 0`. Paths are those inside the root. Calls that failed are left out.
using SystemCalls = std::vector<std::string>;

struct TracedRun {
  CommandResult result;
  SystemCalls calls;
};

/// Empty when programs can be traced here, else a sentence that says why not.
std::string whyUntraceable();

/// Runs a program of the root under strace.
TracedRun traced(const PrivateRoot& root, const std::string& program,
                 const std::vector<std::string>& words);

/// Whether the calls match these patterns of fnmatch(3) one after the other, others in between.
testing::AssertionResult inOrder(const SystemCalls& calls,
                                 const std::vector<std::string>& patterns);

/// Whether each replacement of the file is on disk: its new content is synced under the temporary
/// name, then renamed to this one, then the folder is synced, and nothing about the file is changed
/// in between or afterwards. Fails when the file was never replaced.
testing::AssertionResult isReplacedDurably(const SystemCalls& calls, const std::string& path);

/// How many calls match the pattern.
std::size_t countOf(const SystemCalls& calls, const std::string& pattern);

/// The calls as one text, to be shown with a failure.
std::string textOf(const SystemCalls& calls);

}  // namespace halyard::test
