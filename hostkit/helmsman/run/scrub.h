// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman scrub": reads a part of this host's snapshots and compares it with what was put there.
#pragma once

namespace halyard::hostkit {

struct ScrubArguments {
  unsigned part = 0;  ///< 0 for the one that was not read for the longest time.
  bool json = false;
};

/// Has the engine read the part, keeps what it found for status and metrics, and prints it.
///
/// Returns: success when nothing of the part is damaged; failure otherwise, and when it could not
///          be read; kUsageError for a part that there is none of, or a configuration that cannot
///          be read.
int scrub(const ScrubArguments& arguments);

}  // namespace halyard::hostkit
