// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman undo": takes a restore of one service back.
#pragma once

#include <string>

namespace halyard::hostkit {

struct UndoArguments {
  std::string service;
  bool yes = false;
};

/// Puts every item back that the last restore of the service set aside, whether Halyard or the
/// plug-in did it. The restored items take their place under ".previous", each pair in one step, so
/// nothing is lost at any instant and a second undo brings the restored state back. What the
/// restore made anew goes aside. The server is stopped before and started after, where it is known.
///
/// Prints:  before it asks, what will be taken back and what cannot be.
/// Returns: success when everything that the restore is known to have changed is back, on disk, and
///          the server runs; kPartial when something of it cannot be taken back; failure when
///          nothing is back, or the server does not run.
int undo(const UndoArguments& arguments);

}  // namespace halyard::hostkit
