// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Lets the line counters of a coverage build reach the build folder from inside a private root.
#pragma once

#include <string>

namespace halyard::test {

/// In a coverage build, links each counter file of the program into the root under its own absolute
/// path, so that what a run in the root counts is added to the one file. Does nothing in any other
/// build.
void shareCounters(const std::string& rootFolder);

}  // namespace halyard::test
