// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman status": how the backups of this host stand.
#pragma once

namespace halyard::hostkit {

struct StatusArguments {
  bool json = false;
  bool check = false;  ///< Tell by the exit status whether all is well.
  bool size = false;   ///< Ask the services for their size now, instead of showing the last answer.
};

/// Services with their last good backup, the last run, the latest snapshot, the destination with
/// its space against the estimate, what a backup that runs is doing, whether a dead run left its
/// pid file. A backup that was killed, crashed or was cut off by power shows as "interrupted".
///
/// Returns: success; with `check` failure unless the host is set up, its destination is there, its
///          last backup was good, every service is held whole by a snapshot that is there and not
///          too old, something starts the next run (where systemd tells), and no dead run is in
///          the way.
int status(const StatusArguments& arguments);

}  // namespace halyard::hostkit
