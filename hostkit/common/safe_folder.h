// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Folders that root does not own alone, and the small files in them.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "base/result.h"
#include "host/files/descriptor.h"

namespace halyard::hostkit {

/// Opens a folder by its absolute path, component by component, following no link on the way: what
/// is done in it is done there, whatever becomes of the path.
Result<host::Descriptor> openFolderSafely(const std::string& path);

/// The bytes of a regular file of at most `limit` bytes; a link is not followed, a FIFO or a device
/// not waited for.
std::optional<std::string> readFileSafely(const host::Descriptor& folder, const std::string& name,
                                          std::size_t limit);

}  // namespace halyard::hostkit
