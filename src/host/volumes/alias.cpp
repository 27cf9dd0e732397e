// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/volumes/alias.h"

#include <algorithm>
#include <array>
#include <utility>

#include "host/files/files.h"
#include "host/volumes/mount_table.h"
#include "host/volumes/mounting.h"

namespace halyard::host {

namespace {

/// The tag in "NAME=value", the value with or without double quotes; absent for other names.
std::optional<VolumeTag> parsedTag(std::string_view record) {
  constexpr std::array<std::string_view, 4> kNames = {"UUID", "LABEL", "PARTUUID", "PARTLABEL"};
  const std::size_t equals = record.find('=');
  if (equals == std::string_view::npos) return std::nullopt;
  const std::string_view name = record.substr(0, equals);
  std::string_view value = record.substr(equals + 1);
  if (value.size() >= 2 && value.starts_with('"') && value.ends_with('"')) {
    value = value.substr(1, value.size() - 2);
  }
  if (std::ranges::find(kNames, name) == kNames.end() || value.empty()) return std::nullopt;
  return VolumeTag{std::string(name), std::string(value)};
}

std::optional<std::string> resolveTag(const VolumeTag& tag) {
  if (auto mounted = mountPointOf(tag)) return mounted;
  const auto listed = listedMountPointOf(tag);
  if (!listed) return std::nullopt;
  // The look at the place starts an automount; another volume that stands there is not covered.
  if (!isMountPoint(*listed)) (void)mountListed(*listed);
  return mountPointOf(tag);
}

/// Mounts what fstab lists for the path or a folder above it. False when one cannot be mounted:
/// the folder may exist, but it is the empty place under the missing volume.
bool isBacked(const std::string& path) {
  const auto isReady = [](const std::string& mountPoint) {
    return isMountPoint(mountPoint) || mountListed(mountPoint);
  };
  return std::ranges::all_of(listedMountPoints(path), isReady);
}

std::optional<std::string> resolvePath(const std::string& path) {
  // The name as typed first: only what is mounted shows where the links behind it lead.
  std::string known;
  for (std::string next = path; next != known; next = realPathAsFarAsItLeads(path)) {
    if (!isBacked(next)) return std::nullopt;
    known = std::move(next);
  }
  return isDirectory(path) ? std::optional(path) : std::nullopt;
}

}  // namespace

std::optional<std::string> resolveAlias(std::string_view record) {
  while (record.ends_with('\0')) record.remove_suffix(1);
  if (record.empty() || record.find('\0') != std::string_view::npos) return std::nullopt;
  if (record.starts_with('/')) {
    // A device names no folder that could hold anything.
    if (record.starts_with("/dev/")) return std::nullopt;
    return resolvePath(std::string(record));
  }
  const auto tag = parsedTag(record);
  return tag ? resolveTag(*tag) : std::nullopt;
}

}  // namespace halyard::host
