// Small files in folders that root does not own alone.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "host/files/descriptor.h"

namespace halyard::hostkit {

/// Opens a folder by its absolute path, component by component, following no link on the way: what
/// is done in it is done there, whatever becomes of the path. Invalid, with errno set, otherwise.
host::Descriptor openFolderSafely(const std::string& path);

/// Replaces a file of the open folder: at any instant it is absent, old or complete. Only the file
/// that this call made gets the mode, whatever stands under the name. False, with errno set.
bool replaceFile(const host::Descriptor& folder, const std::string& name, std::string_view bytes,
                 mode_t mode);

/// The bytes of a regular file of at most `limit` bytes; a link is not followed, a FIFO or a device
/// not waited for.
std::optional<std::string> readFileSafely(const host::Descriptor& folder, const std::string& name,
                                          std::size_t limit);

}  // namespace halyard::hostkit
