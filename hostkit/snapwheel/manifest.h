// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The record that the engine keeps in each snapshot: <snapshot>/.snapwheel/manifest.json.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "base/result.h"

namespace halyard::snapwheel {

/// An item that is missing in a snapshot although it was not excluded.
struct MissingItem {
  std::string path;  ///< Relative to the root of the source.
  int error = 0;     ///< The errno value.
};

/// At most so many missing or torn items are named; all are counted.
inline constexpr std::size_t kNamedItems = 1000;

struct Manifest {
  std::string computer;
  std::string volume;     ///< The name of the folder with the volume's contents.
  std::string source;     ///< The folder that was copied.
  std::string started;    ///< Name-like instants in UTC.
  std::string finished;   ///< Empty while the snapshot is being made.
  std::string reference;  ///< The snapshot that this one shares its data with; empty for none.
  std::string boot;       ///< The boot identifier of the host while it was made.
  bool complete = false;  ///< Every item that was not excluded is in it, and none is torn.
  std::uint64_t items = 0;
  std::uint64_t copied = 0;       ///< Regular files with data of their own,
  std::uint64_t copiedBytes = 0;  ///< and their sizes.
  std::uint64_t linked = 0;       ///< Regular files shared with the reference.
  std::uint64_t linkedBytes = 0;
  std::uint64_t missingCount = 0;
  std::vector<MissingItem> missing;
  std::uint64_t tornCount = 0;
  std::vector<std::string> torn;  ///< Files that changed whenever they were read: maybe mixtures.
  bool unfinishedBackup = false;  ///< A backup of the services was under way: none in it is whole.

  /// Whether it is finished and every item that was not excluded is in it, torn ones included.
  bool lacksNothing() const { return complete || (missingCount == 0 && tornCount != 0); }
};

/// Absent when there is none or it cannot be understood.
std::optional<Manifest> readManifest(const std::string& snapshotPath);

/// Replaces the manifest at once.
Status writeManifest(const std::string& snapshotPath, const Manifest& manifest);

/// As it stands in the file and in the output of "list --json". Bytes that are no UTF-8 are shown
/// as U+FFFD.
nlohmann::json toJson(const Manifest& manifest);

}  // namespace halyard::snapwheel
