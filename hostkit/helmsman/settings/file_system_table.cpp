// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/settings/file_system_table.h"

#include <libmount.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

namespace halyard::hostkit {

namespace {

constexpr char kTable[] = "/etc/fstab";

std::string orEmpty(const char* text) { return text == nullptr ? std::string{} : text; }

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
  const std::unique_ptr<libmnt_table, decltype(&mnt_unref_table)> table(
      mnt_new_table_from_file(kTable), &mnt_unref_table);
  const std::unique_ptr<libmnt_iter, decltype(&mnt_free_iter)> rows(mnt_new_iter(MNT_ITER_FORWARD),
                                                                    &mnt_free_iter);
  libmnt_fs* row = nullptr;
  while (table && mnt_table_next_fs(table.get(), rows.get(), &row) == 0) {
    ListedVolume volume{orEmpty(mnt_fs_get_target(row)), orEmpty(mnt_fs_get_source(row)),
                        orEmpty(mnt_fs_get_fstype(row))};
    const bool isLater = mnt_fs_get_option(row, "noauto", nullptr, nullptr) == 0;
    while (volume.mountPoint.size() > 1 && volume.mountPoint.ends_with('/')) {
      volume.mountPoint.pop_back();
    }
    if (isLater || mnt_fs_is_swaparea(row) != 0 || !volume.mountPoint.starts_with('/') ||
        volume.mountPoint == "/" || !isOfThisHost(volume)) {
      continue;
    }
    volumes.push_back(std::move(volume));
  }
  return volumes;
}

}  // namespace halyard::hostkit
