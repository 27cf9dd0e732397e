// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman recover": brings the services back on a host that was brought back from a snapshot.
#pragma once

#include <string>

namespace halyard::hostkit {

struct RecoverArguments {
  std::string snapshot;  ///< The one that the host was brought back from; empty: found by itself.
  bool dryRun = false;
  bool yes = false;
  bool noVerify = false;
  bool json = false;
};

/// Runs Halyard's whole-system restore on the "/.Halyards" that came back with the volume, and
/// judges it service by service: Halyard itself collects no status.
///
/// Refused, with nothing touched, unless "/.Halyards" is signed and of another volume than the
/// booted one: Halyard would delete it as a bogus attempt. The snapshot is known by its signature;
/// without one the services cannot be verified afterwards, which is said.
///
/// Writes:  a record of each service for undo, in place of those of the lost host, and the journal
///          kRecoveryFile.
/// Returns: success when every service of the backup is back whole; kPartial when some are; failure
///          when none is, or nothing was done.
int recover(const RecoverArguments& arguments);

}  // namespace halyard::hostkit
