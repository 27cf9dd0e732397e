// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The command line of helmsman: which words are understood, and what runs then.
#pragma once

namespace halyard::hostkit {

/// Parses the command line and runs its subcommand. Returns the exit status.
int runHelmsman(int count, char** words);

}  // namespace halyard::hostkit
