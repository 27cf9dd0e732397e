// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman diff" and "helmsman find": what the engine knows of the files in snapshots.
#pragma once

#include <string>

namespace halyard::hostkit {

struct DiffArguments {
  std::string service;  ///< As completeServiceName takes it.
  std::string older;    ///< As findSnapshot takes them.
  std::string newer;    ///< Empty for what the host has now.
  bool json = false;
};

struct FindArguments {
  std::string pattern;
  bool json = false;
};

/// What of a service differs: the files and folders that its descriptors list and, between two
/// snapshots, what its backup holds.
///
/// Returns: the engine's exit status; failure for a service that lists nothing to compare with.
int diff(const DiffArguments& arguments);

/// Finds files in all snapshots of this host, as the engine does. Returns its exit status.
int find(const FindArguments& arguments);

}  // namespace halyard::hostkit
