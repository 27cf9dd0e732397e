// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The snapshot that a restore takes a service from.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "helmsman/restore/restore.h"
#include "helmsman/snapshots/host_snapshots.h"

namespace halyard::hostkit {

/// Finds the snapshot for `names`, the services of the descriptors that the restore acts on: the
/// one that was typed, or the newest that holds anything of them all.
///
/// A snapshot that holds a service in part is refused without --force. The newest one that holds
/// them whole is named then, and offered on a terminal; without one, and with --yes, the command
/// that takes it is printed and nothing is chosen in its place.
///
/// Prints:  warnings about what is restored in part. Absent, with the reason, when nothing fits.
std::optional<Snapshot> restoreSource(const RestoreArguments& arguments, const std::string& service,
                                      const std::vector<std::string>& names, std::string& problem);

}  // namespace halyard::hostkit
