// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Where the metadata folder lies inside a snapshot.
#pragma once

#include <functional>
#include <string>

namespace halyard {

/// The metadata folder of a snapshot: <folder>/<entry>/.Halyards for the last top-level entry, in
/// name order, at which that is a directory; empty when there is none. An empty folder path has no
/// entries. `visit`, when given, is called with each entry before it is looked at.
std::string findSnapshotMetadataFolder(
    const std::string& folder, const std::function<void(const std::string& entry)>& visit = {});

}  // namespace halyard
