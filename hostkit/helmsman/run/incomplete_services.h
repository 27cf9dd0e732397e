// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What a backup run leaves in "/.Halyards" about services that are not whole in it.
#pragma once

#include <string>
#include <vector>

#include "helmsman/run/run_record.h"
#include "helmsman/snapshots/host_snapshots.h"

namespace halyard::hostkit {

/// What the backup of a service lacks, whatever its programs do.
struct ServiceLack {
  std::string service;
  std::string text;
};

/// By the host as it is now: listed links, and listed paths on volumes that are not mounted.
std::vector<ServiceLack> lacksOfHost(const std::vector<std::string>& leftOut);

/// Adds these, and the services that are switched on without a descriptor. No snapshot may pass for
/// one that holds them.
void addLacks(const std::vector<ServiceLack>& lacks, const std::vector<std::string>& undescribed,
              std::vector<ServiceResult>& services);

/// Brings results and marks together: a service whose plug-in left the mark is not good and gets
/// the plug-in's reasons as problems; then every service with a problem gets the mark, whether it
/// has a folder or not. A name that no folder can have needs none.
///
/// Returns: the services that could not be marked; a snapshot would show them as whole.
std::vector<std::string> settleIncompleteServices(const std::string& metadataFolder,
                                                  std::vector<ServiceResult>& services);

/// Adds what is marked in the snapshot. The signature tells that it carries this run's backup, not
/// that all of it arrived: the engine marks what did not.
void addLacksOf(const Snapshot& snapshot, std::vector<ServiceResult>& services);

}  // namespace halyard::hostkit
