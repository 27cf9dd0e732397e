// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/file_system_table.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "host/volumes/mount_table.h"

namespace halyard::hostkit {

namespace {

bool isOfThisHost(const ListedVolume& volume) {
  constexpr std::array<std::string_view, 6> kPrefixes = {
      "/dev/", "UUID=", "LABEL=", "PARTUUID=", "PARTLABEL=", "ID="};
  return volume.type == "zfs" || std::ranges::any_of(kPrefixes, [&](std::string_view prefix) {
           return volume.source.starts_with(prefix);
         });
}

}  // namespace

std::vector<ListedVolume> listedVolumes() {
  std::vector<ListedVolume> volumes;
  for (host::ListedMount& row : host::listedMounts()) {
    ListedVolume volume{std::move(row.mountPoint), std::move(row.source), std::move(row.type)};
    if (!row.isAutomatic || volume.type == "swap" || !volume.mountPoint.starts_with('/') ||
        volume.mountPoint == "/" || !isOfThisHost(volume)) {
      continue;
    }
    volumes.push_back(std::move(volume));
  }
  return volumes;
}

}  // namespace halyard::hostkit
