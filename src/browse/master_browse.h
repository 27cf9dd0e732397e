// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The master browse catalogue: what each service says it has backed up, in one property list.
#pragma once

#include <string>
#include <string_view>

#include "base/property_list.h"

namespace halyard {

/// Builds "/.Halyards/master.browse.plist" from the browse files that the services left in their
/// folders there, and prints it.
///
/// Reads:  the descriptors; for each "/.Halyards/<name>/<name>.browse.plist".
/// Writes: the catalogue, replacing an earlier one: service name to that file's root object; a
///         later descriptor of the same name replaces the earlier one's value.
/// Prints: the path of each browse file, warnings for missing and for empty ones, the catalogue
///         ("(null)" when it could not be written).
void CreateMasterBrowse();

/// Entries of a browse listing's root.
enum class ListingRoot {
  noData,    ///< Not parsed, or an empty dictionary or array.
  unusable,  ///< Neither a dictionary nor an array.
  filled,
};
ListingRoot listingRoot(const std::optional<PropertyValue>& root);

}  // namespace halyard
