// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman restore": puts one service back from a snapshot.
#pragma once

#include <string>

namespace halyard::hostkit {

struct RestoreArguments {
  std::string service;
  std::string snapshot;  ///< A name, the beginning of one, a path; empty for the latest.
  std::string option;    ///< Handed to the service's plug-in.
  bool dryRun = false;
  bool yes = false;
  bool noVerify = false;
  /// Restore what there is of a service that the snapshot holds in part, and lose what an earlier
  /// restore set aside.
  bool force = false;
};

/// Checks first (does the snapshot hold the service, is there room), shows what will be replaced,
/// asks, has Halyard restore, looks at every path afterwards, and has the service verified.
///
/// Halyard does not tell the status of the service's restore program; what it left behind is
/// judged instead, and what it writes into the journal that it is given. A program that does not
/// say there that it worked may have failed.
///
/// Writes:  the record that undo reads: what was there before and what is there afterwards.
/// Returns: success when every item that the snapshot holds is back and verify finds no mismatch;
///          kPartial when all that is so of a service that the snapshot holds in part, or of one
///          whose restore program does not say that it worked.
int restore(const RestoreArguments& arguments);

}  // namespace halyard::hostkit
