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
#include "host/tree/tree_copy.h"

namespace halyard::snapwheel {

/// An item that is missing in a snapshot although it was not excluded.
struct MissingItem {
  std::string path;  ///< Relative to the root of the host, whatever volume it is on.
  int error = 0;     ///< The errno value.
};

/// One volume of a snapshot. What is linked is shared with the reference.
struct VolumeRecord : host::TreeCopyCounts {
  std::string folder;      ///< The name of the folder with its contents.
  std::string mountPoint;  ///< Where it belongs: "/" for the first, by volume_names.h for others.
  std::string uuid;        ///< Of the file system; empty when unknown.
  std::string type;        ///< "ext4"; empty when unknown.
  std::string reference;   ///< The snapshot that it shares its data with; empty for none.
  bool ofOneInstant = false;  ///< What was copied stood still.
};

/// At most so many missing or torn items are named; all are counted.
inline constexpr std::size_t kNamedItems = 1000;

/// The counts are those of all volumes.
struct Manifest : host::TreeCopyCounts {
  std::string computer;
  std::string volume;     ///< The name of the folder with the contents of the first volume.
  std::string source;     ///< The folder that was copied there.
  std::string started;    ///< Name-like instants in UTC.
  std::string finished;   ///< Empty while the snapshot is being made.
  std::string reference;  ///< The snapshot that this one shares its data with; empty for none.
  std::string boot;       ///< The boot identifier of the host while it was made.
  bool complete = false;  ///< Every item that was not excluded is in it, and none is torn.
  std::uint64_t missingCount = 0;
  std::vector<MissingItem> missing;
  std::uint64_t tornCount = 0;
  std::vector<std::string> torn;  ///< Files that changed whenever they were read: maybe mixtures.
  bool unfinishedBackup = false;  ///< A backup of the services was under way: none in it is whole.
  std::vector<VolumeRecord> volumes;  ///< The one at "/" first, each after those it is mounted in.
  std::vector<std::string> absentVolumes;  ///< Mount points of those that were to be in it.

  /// Whether it is finished and every item that was not excluded is in it, torn ones included.
  bool lacksNothing() const { return complete || (missingCount == 0 && tornCount != 0); }
};

/// Whether the name can be the one of the first volume's folder.
bool isUsableFolderName(const std::string& name);

/// Absent when there is none or it cannot be understood: also when two volumes have one folder or
/// one mount point, or a folder is not called after its mount point. One of an older format has the
/// one volume that it is about.
std::optional<Manifest> readManifest(const std::string& snapshotPath);

/// Replaces the manifest at once.
Status writeManifest(const std::string& snapshotPath, const Manifest& manifest);

/// As it stands in the file and in the output of "list --json". Bytes that are no UTF-8 are shown
/// as U+FFFD.
nlohmann::json toJson(const Manifest& manifest);

}  // namespace halyard::snapwheel
