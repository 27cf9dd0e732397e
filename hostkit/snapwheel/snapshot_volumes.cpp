// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/snapshot_volumes.h"

#include <algorithm>
#include <optional>

#include "base/text.h"
#include "common/volume_names.h"
#include "host/files/files.h"
#include "snapwheel/manifest.h"

namespace halyard::snapwheel {

namespace {

std::vector<SnapshotVolume> volumesByManifest(const std::string& snapshotPath) {
  std::vector<SnapshotVolume> volumes;
  const auto manifest = readManifest(snapshotPath);
  if (!manifest) return volumes;
  for (const VolumeRecord& record : manifest->volumes) {
    SnapshotVolume volume{record.folder, record.mountPoint, false};
    volume.isThere = host::isRealDirectory(volume.path(snapshotPath));
    volumes.push_back(std::move(volume));
  }
  return volumes;
}

/// A single folder is the one of "/", whatever its name.
std::vector<SnapshotVolume> volumesByFolders(const std::string& snapshotPath) {
  std::vector<std::string> folders = host::listDirectory(snapshotPath);
  std::erase_if(folders, [&](const std::string& name) {
    return name.front() == '.' || !host::isRealDirectory(joinPath(snapshotPath, name));
  });
  if (folders.size() == 1) return {{folders.front(), "/", true}};
  std::vector<SnapshotVolume> volumes;
  for (const std::string& folder : folders) {
    if (auto place = hostkit::mountPointOfFolder(folder)) {
      volumes.push_back({folder, std::move(*place), true});
    }
  }
  return volumes;
}

}  // namespace

std::string SnapshotVolume::path(const std::string& snapshotPath) const {
  return joinPath(snapshotPath, folder);
}

RecordPlace SnapshotVolume::records(const std::string& snapshotPath) const {
  return isRoot() ? RecordPlace(snapshotPath) : RecordPlace(snapshotPath, folder);
}

std::string SnapshotVolume::hostPath(const std::string& pathInVolume) const {
  if (isRoot()) return pathInVolume;
  return mountPoint.substr(1) + (pathInVolume.empty() ? "" : "/") + pathInVolume;
}

std::vector<SnapshotVolume> volumesOf(const std::string& snapshotPath) {
  std::vector<SnapshotVolume> volumes = volumesByManifest(snapshotPath);
  if (volumes.empty() || !volumes.front().isThere) volumes = volumesByFolders(snapshotPath);
  // What a volume is mounted in has the shorter mount point; "/" the shortest of all.
  std::ranges::stable_sort(volumes, {}, &SnapshotVolume::mountPoint);
  if (volumes.empty() || !volumes.front().isRoot()) return {};
  return volumes;
}

}  // namespace halyard::snapwheel
