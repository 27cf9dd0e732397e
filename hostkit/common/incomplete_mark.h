// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The mark of a service that is not whole in a metadata folder: a file in its folder there.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halyard::hostkit {

/// Whether a service of this name can have a folder in a metadata folder, and nothing above or
/// below it.
bool isFolderName(std::string_view name);

/// Writes the mark, one reason a line, in place of one that is there, and makes the service's
/// folder when it is missing. On disk when this returns.
///
/// Returns: false when it could not be written, or when something else stands where the folder
///          belongs; no link is followed.
bool markIncomplete(const std::string& metadataFolder, const std::string& service,
                    const std::vector<std::string>& reasons);

/// The reasons of a service's mark; absent without a mark. Whatever stands under its name is one:
/// what cannot be read as a mark, an empty file too, is told as the reason. Each reason is
/// printable text of one line, whoever wrote it.
std::optional<std::vector<std::string>> incompleteReasons(const std::string& metadataFolder,
                                                          const std::string& service);

}  // namespace halyard::hostkit
