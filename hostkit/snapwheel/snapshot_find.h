// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Finds files in all snapshots, by the indexes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "snapwheel/repository.h"

namespace halyard::snapwheel {

/// The same contents under one path in snapshots that follow each other.
struct FoundVersion {
  std::string first;  ///< Names of snapshots.
  std::string last;
  std::uint64_t snapshots = 1;
  std::uint64_t size = 0;  ///< 0 of what is no regular file.
  std::uint32_t mode = 0;
  std::optional<std::int64_t> modified;  ///< Seconds; absent when the last one cannot be looked at.
};

struct FoundItem {
  std::string path;                    ///< On the host, without the "/" before it.
  std::vector<FoundVersion> versions;  ///< Oldest first.
};

struct FindReport {
  std::vector<FoundItem> items;           ///< By path.
  std::vector<std::string> withoutIndex;  ///< Snapshots that could not be searched, or not wholly.
};

/// A pattern without "/" is matched against names, "*" against any part of one; any other against
/// the whole path on the host, where "*" and "?" match no "/". Takes memory for what it finds and
/// for one snapshot.
FindReport findInSnapshots(const Repository& repository, const std::string& pattern);

}  // namespace halyard::snapwheel
