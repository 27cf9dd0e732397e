// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The help text and the version line.
#pragma once

namespace halyard {

/// Prints: the help text, 42 lines.
void Usage();

/// Reads:   the descriptor "45-hostProfile.plist".
/// Prints:  its "Version" and a line feed, an empty line when it has entries but no such text;
///          nothing when it is missing, unreadable or empty.
/// Returns: 0.
int Version();

}  // namespace halyard
