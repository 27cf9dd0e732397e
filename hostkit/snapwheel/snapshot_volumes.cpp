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

std::vector<std::string> foldersIn(const std::string& path) {
  std::vector<std::string> folders = host::listDirectory(path);
  std::erase_if(folders, [&](const std::string& name) {
    return name.front() == '.' || !host::isRealDirectory(joinPath(path, name));
  });
  return folders;
}

/// Folders of the further volumes that the snapshot was to hold, by the records of each.
std::vector<std::string> recordedVolumes(const std::string& snapshotPath) {
  const std::string records = RecordPlace(snapshotPath).path();
  if (!host::isRealDirectory(records) || !host::isRealDirectory(records + "/volumes")) return {};
  std::vector<std::string> folders = foldersIn(records + "/volumes");
  std::erase_if(folders, [](const std::string& folder) {
    return hostkit::mountPointOfFolder(folder).value_or("/") == "/";
  });
  return folders;
}

/// A single folder that is not recorded as another volume's is the one of "/", whatever its name.
std::vector<SnapshotVolume> volumesByFolders(const std::string& snapshotPath) {
  std::vector<std::string> folders = foldersIn(snapshotPath);
  const std::vector<std::string> recorded = recordedVolumes(snapshotPath);
  std::vector<SnapshotVolume> volumes;
  for (const std::string& folder : recorded) {
    const bool isThere = std::erase(folders, folder) != 0;
    volumes.push_back({folder, *hostkit::mountPointOfFolder(folder), isThere});
  }
  if (folders.size() == 1) {
    volumes.push_back({folders.front(), "/", true});
  } else if (folders.empty() && !recorded.empty()) {
    volumes.push_back({std::string(hostkit::kRootVolumeFolder), "/", false});
  }
  if (folders.size() <= 1) return volumes;
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
  // One volume alone may have been given another name by hand.
  const bool isAlone = volumes.size() == 1 && !volumes.front().isThere;
  if (volumes.empty() || isAlone) volumes = volumesByFolders(snapshotPath);
  // What a volume is mounted in has the shorter mount point; "/" the shortest of all.
  std::ranges::stable_sort(volumes, {}, &SnapshotVolume::mountPoint);
  if (volumes.empty() || !volumes.front().isRoot()) return {};
  return volumes;
}

}  // namespace halyard::snapwheel
