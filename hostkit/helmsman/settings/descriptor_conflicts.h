// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Files of the configuration folder that make the program work on a service twice.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "helmsman/settings/services.h"

namespace halyard::hostkit {

/// One such file. A backup takes the service from it again, over what the first descriptor gave; a
/// restore runs again, and the second run sets aside what the first one put back.
struct DescriptorConflict {
  std::string path;     ///< Of the descriptor that the problem is about.
  std::string key;      ///< Of the descriptor; empty when the whole file is meant.
  std::string problem;  ///< What is wrong.
  std::string command;  ///< What mends it.
};

/// Whether a package or an editor leaves files of this name behind: "x.dpkg-dist", "x~", "x.bak".
bool isLeftoverName(std::string_view fileName);

std::vector<DescriptorConflict> descriptorConflicts(
    const std::vector<InstalledDescriptor>& descriptors);

/// The same as sentences, each with the command that mends it: what refuses a backup or a restore.
std::vector<std::string> descriptorProblems();

}  // namespace halyard::hostkit
