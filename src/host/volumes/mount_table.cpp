// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/volumes/mount_table.h"

#include <fcntl.h>
#include <mntent.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string_view>

#include "base/text.h"
#include "host/volumes/mount_library.h"

namespace halyard::host {

namespace {

std::string orEmpty(const char* text) { return text == nullptr ? std::string() : text; }

Mount mountOfRow(const MountLibrary& library, libmnt_fs* row) {
  Mount mount;
  mount.identifier = static_cast<std::uint64_t>(library.mountIdentifier(row));
  mount.number = library.deviceNumber(row);
  mount.mountPoint = orEmpty(library.target(row));
  mount.device = orEmpty(library.source(row));
  mount.type = orEmpty(library.type(row));
  mount.root = orEmpty(library.root(row));
  mount.isReadOnly = library.option(row, "ro", nullptr, nullptr) == 0;
  mount.isNetwork = library.isNetwork(row) != 0;
  mount.isPseudo = library.isPseudo(row) != 0;
  return mount;
}

/// The names of an absolute path, "." and ".." worked out as text.
std::vector<std::string> normalNames(std::string_view path) {
  std::vector<std::string> names;
  for (const std::string_view name : splitAt(path, '/')) {
    if (name == "..") {
      if (!names.empty()) names.pop_back();
    } else if (!name.empty() && name != ".") {
      names.emplace_back(name);
    }
  }
  return names;
}

std::string normalPath(std::string_view path) {
  return path.starts_with('/') ? "/" + joinComponents(normalNames(path)) : std::string(path);
}

}  // namespace

std::optional<std::vector<Mount>> mounts() {
  const MountLibrary* library = mountLibrary();
  if (library == nullptr) return std::nullopt;
  const MountTable table(library->newTable(), library->unrefTable);
  const MountIterator iterator(library->newIterator(MNT_ITER_FORWARD), library->freeIterator);
  if (!table || !iterator || library->parseFile(table.get(), "/proc/self/mountinfo") != 0) {
    return std::nullopt;
  }
  std::vector<Mount> rows;
  libmnt_fs* row = nullptr;
  while (library->nextEntry(table.get(), iterator.get(), &row) == 0) {
    rows.push_back(mountOfRow(*library, row));
  }
  return rows;
}

std::vector<std::string> writableLocalVolumes() {
  std::vector<std::string> mountPoints;
  for (Mount& mount : mounts().value_or(std::vector<Mount>())) {
    if (mount.isReadOnly || !mount.device.starts_with("/dev/")) continue;
    mountPoints.push_back(std::move(mount.mountPoint));
  }
  return mountPoints;
}

Result<struct statx> mountStatusOf(const std::string& path, unsigned wanted) {
  struct statx status {};
  if (::statx(AT_FDCWD, path.c_str(), 0, wanted | STATX_MNT_ID, &status) != 0) {
    return Error{errno, path};
  }
  return status;
}

bool isMountPoint(const std::string& path) {
  if (normalPath(path) == "/") return true;
  const auto status = mountStatusOf(path);
  if (!status) return false;
  if ((status->stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0) {
    return (status->stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  }
  // An older kernel: another device than the parent's.
  const auto parent = mountStatusOf(path + "/..");
  return parent && (parent->stx_dev_major != status->stx_dev_major ||
                    parent->stx_dev_minor != status->stx_dev_minor);
}

// Not by libmount: a destination that is a plain path, the usual one, loads no library.
std::vector<ListedMount> listedMounts() {
  std::vector<ListedMount> rows;
  const std::unique_ptr<std::FILE, decltype(&::endmntent)> table(::setmntent(kFstab, "re"),
                                                                 ::endmntent);
  if (!table) return rows;
  std::array<char, std::size_t{16} << 10> buffer{};
  mntent row{};
  while (::getmntent_r(table.get(), &row, buffer.data(), static_cast<int>(buffer.size())) !=
         nullptr) {
    rows.push_back({row.mnt_fsname, normalPath(row.mnt_dir), row.mnt_type,
                    ::hasmntopt(&row, MNTOPT_NOAUTO) == nullptr});
  }
  return rows;
}

std::vector<std::string> listedMountPoints(const std::string& path) {
  const std::string below = normalPath(path) + "/";
  std::vector<std::string> mountPoints;
  for (ListedMount& row : listedMounts()) {
    if (!row.mountPoint.starts_with('/') || row.mountPoint == "/") continue;
    if (below.starts_with(row.mountPoint + "/")) mountPoints.push_back(std::move(row.mountPoint));
  }
  std::ranges::sort(mountPoints, {}, &std::string::size);
  return mountPoints;
}

}  // namespace halyard::host
