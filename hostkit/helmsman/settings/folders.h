// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The fixed folders that Halyard names, and the native ones that they lead to.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "base/result.h"

namespace halyard::hostkit {

/// A fixed path and the native folder behind it.
struct FixedFolder {
  const char* path;
  const char* native;
  mode_t permissions;  ///< Of a native folder that has to be made.
};

/// All of them.
const std::vector<FixedFolder>& fixedFolders();

enum class FolderOutcome { alreadyThere, made, failed };

/// Makes the fixed path lead to a folder: nothing is done when it does already, be it a link or a
/// folder of its own. Otherwise the native folder is made when missing, then the link to it.
/// `problem` says why it failed.
FolderOutcome provideFolder(const FixedFolder& folder, std::string& problem);

/// The same for the folder at one of the fixed paths.
FolderOutcome provideFolder(const std::string& path, std::string& problem);

/// Makes a folder and those above it (0755, the last one as given). Done when it is there
/// afterwards.
Status makeFolders(const std::string& path, mode_t permissions);

}  // namespace halyard::hostkit
