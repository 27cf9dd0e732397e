// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What is written is on disk when these return.
#pragma once

#include <string>
#include <vector>

#include "base/result.h"

namespace halyard::host {

/// Everything written so far on the file system that holds the file or folder `path`.
Status syncFileSystem(const std::string& path);
/// The same for an open item.
Status syncFileSystem(int item);

/// The same for each of the file systems that hold the paths, once each; the first error. A path
/// that leads nowhere is passed over.
Status syncFileSystems(const std::vector<std::string>& paths);

/// The names in a folder: what was made, renamed or removed there. Not what is in the items. Done
/// also where the file system syncs no folders, as some on a network: there names are as safe as it
/// makes them.
Status syncFolder(const std::string& path);
/// The same for an open folder, also one that was opened O_PATH.
Status syncFolder(int folder);

/// The folder that holds `path`: after it was made, renamed or removed there.
Status syncFolderOf(const std::string& path);

}  // namespace halyard::host
