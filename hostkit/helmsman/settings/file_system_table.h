// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The volumes that /etc/fstab wants on this host.
#pragma once

#include <string>
#include <vector>

namespace halyard::hostkit {

/// A line of the table.
struct ListedVolume {
  std::string mountPoint;
  std::string source;  ///< "/dev/sda1", "UUID=..." as it stands there.
  std::string type;    ///< "ext4"; "auto" where the table leaves it open.
};

/// The file systems on devices of this host that are mounted at every boot, "/" left out: no swap,
/// no network, nothing that lies in memory or shows a folder again, no line with "noauto".
std::vector<ListedVolume> listedVolumes();

}  // namespace halyard::hostkit
