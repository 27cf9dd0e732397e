// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A command that the snapshot engine carries out.
#pragma once

#include <string>
#include <vector>

namespace halyard::hostkit {

/// Runs the engine, which waits as long as this process still does, and passes on its answer and
/// what it says.
///
/// Returns: its exit status; failure when it could not be run.
int callEngine(std::vector<std::string> words);

}  // namespace halyard::hostkit
