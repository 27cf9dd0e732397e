// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Whether a snapshot carries a good backup of the host's services.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace halyard::snapwheel {

/// What is known to be wrong with the services' backup in a volume of a snapshot, a sentence each:
/// a metadata folder without its signature, from a run that was cut off, and each service that is
/// marked as incomplete. Empty when all is well, and when the volume carries no metadata folder at
/// all: then it is no host that Halyard backs up.
std::vector<std::string> backupProblems(const std::string& volumePath);

/// What the copy of a volume lacks of a service's backup in its source: a sentence, or absent when
/// both hold the same number of items and bytes.
std::optional<std::string> lackOfService(const std::string& source, const std::string& volumePath,
                                         const std::string& service);

/// Marks every service whose backup the copy does not hold as its source does, reasons that are
/// there already included. Nothing is done where the copy has no metadata folder: nobody takes it
/// for a backup of the services.
///
/// Prints:  a warning for each.
/// Returns: the items that were made. Throws Failure when a mark could not be written.
std::uint64_t markLackingServices(const std::string& source, const std::string& volumePath);

/// Whether a backup of the services was under way, or had been interrupted, while its source was
/// copied: the copy has a metadata folder that is not signed, or the source another one by now.
bool carriesUnfinishedBackup(const std::string& source, const std::string& volumePath);

/// Whether the volume carries a signed backup of the services, whole or not.
bool carriesBackup(const std::string& volumePath);

}  // namespace halyard::snapwheel
