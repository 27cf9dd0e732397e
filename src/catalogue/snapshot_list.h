// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The listings of this host's snapshots.
#pragma once

namespace halyard {

/// Prints the path of each snapshot of this host, "Latest" left out.
///
/// Reads:  the preferences; the computer name.
/// Runs:   "/bin/ls" "-A" on the folder that holds the snapshots.
/// Prints: that folder, "/" and the name, one a line; an error line when the folder is missing.
void List();

/// The same with "-Alh": the folder, "/" and the complete long line, "Latest" included.
void ListVerbose();

}  // namespace halyard
