// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "snapwheel/manifest.h"

#include <algorithm>
#include <cerrno>

#include "base/text.h"
#include "common/json_file.h"
#include "common/json_members.h"
#include "common/volume_names.h"
#include "host/files/files.h"
#include "snapwheel/repository.h"

namespace halyard::snapwheel {

using hostkit::countOf;
using hostkit::flagOf;
using hostkit::integerOf;
using hostkit::memberOf;
using hostkit::textOf;
using hostkit::textsOf;

namespace {

constexpr std::size_t kManifestLimit = std::size_t{4} << 20;
constexpr int kFormat = 3;
constexpr int kOneVolumeFormat = 2;
constexpr int kOldestFormat = 1;  // Knows no torn items.
constexpr int kIndent = 2;
constexpr std::size_t kMostVolumes = 1000;

std::string manifestPath(const std::string& snapshotPath) {
  return snapshotPath + "/" + std::string(kRecordFolder) + "/manifest.json";
}

VolumeRecord onlyVolumeOf(const Manifest& manifest) {
  VolumeRecord volume;
  volume += manifest;
  volume.folder = manifest.volume;
  volume.mountPoint = "/";
  volume.reference = manifest.reference;
  return volume;
}

nlohmann::json toJson(const host::TreeCopyCounts& counts) {
  return {{"items", counts.items},
          {"copied", counts.copied},
          {"copiedBytes", counts.copiedBytes},
          {"linked", counts.linked},
          {"linkedBytes", counts.linkedBytes}};
}

host::TreeCopyCounts countsIn(const nlohmann::json& object) {
  host::TreeCopyCounts counts;
  counts.items = countOf(object, "items").value_or(0);
  counts.copied = countOf(object, "copied").value_or(0);
  counts.copiedBytes = countOf(object, "copiedBytes").value_or(0);
  counts.linked = countOf(object, "linked").value_or(0);
  counts.linkedBytes = countOf(object, "linkedBytes").value_or(0);
  return counts;
}

nlohmann::json toJson(const VolumeRecord& volume) {
  nlohmann::json object = toJson(static_cast<const host::TreeCopyCounts&>(volume));
  object.update({{"folder", volume.folder},
                 {"mountPoint", volume.mountPoint},
                 {"uuid", volume.uuid},
                 {"type", volume.type},
                 {"reference", volume.reference},
                 {"ofOneInstant", volume.ofOneInstant}});
  return object;
}

/// By the folder, which is exact where the text had bytes that are no UTF-8. Empty when the two do
/// not belong together.
std::string mountPointIn(const nlohmann::json& object, const std::string& folder) {
  std::string told = textOf(object, "mountPoint");
  if (told == "/") return told;
  const std::string exact = hostkit::mountPointOfFolder(folder).value_or("");
  return told == exact || !isValidUtf8(exact) ? exact : std::string();
}

VolumeRecord volumeIn(const nlohmann::json& object) {
  VolumeRecord volume;
  volume += countsIn(object);
  volume.folder = textOf(object, "folder");
  volume.mountPoint = mountPointIn(object, volume.folder);
  volume.uuid = textOf(object, "uuid");
  volume.type = textOf(object, "type");
  volume.reference = textOf(object, "reference");
  volume.ofOneInstant = flagOf(object, "ofOneInstant");
  return volume;
}

/// EIO for what is no errno value.
int errorIn(const nlohmann::json& object) {
  constexpr std::int64_t kLargest = 4095;
  const std::int64_t error = integerOf(object, "errno").value_or(0);
  return error > 0 && error <= kLargest ? static_cast<int>(error) : EIO;
}

/// Whether a restore may go by them: each has a folder and, as that is called after it, a mount
/// point of its own.
bool areSound(const std::vector<VolumeRecord>& volumes, const std::string& first) {
  if (volumes.empty() || volumes.size() > kMostVolumes) return false;
  if (volumes.front().folder != first || volumes.front().mountPoint != "/") return false;
  std::vector<std::string> folders;
  for (const VolumeRecord& volume : volumes) {
    const bool isFirst = folders.empty();
    if (volume.mountPoint.empty() || (volume.mountPoint == "/") != isFirst) return false;
    folders.push_back(volume.folder);
  }
  std::ranges::sort(folders);
  return std::ranges::adjacent_find(folders) == folders.end();
}

}  // namespace

bool isUsableFolderName(const std::string& name) {
  return !name.empty() && name.front() != '.' && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

nlohmann::json toJson(const Manifest& manifest) {
  nlohmann::json missing = nlohmann::json::array();
  for (const MissingItem& item : manifest.missing) {
    missing.push_back({{"path", item.path}, {"errno", item.error}});
  }
  nlohmann::json volumes = nlohmann::json::array();
  for (const VolumeRecord& volume : manifest.volumes) volumes.push_back(toJson(volume));
  if (volumes.empty()) volumes.push_back(toJson(onlyVolumeOf(manifest)));
  nlohmann::json object = toJson(static_cast<const host::TreeCopyCounts&>(manifest));
  object.update({{"format", kFormat},
                 {"computer", manifest.computer},
                 {"volume", manifest.volume},
                 {"source", manifest.source},
                 {"started", manifest.started},
                 {"finished", manifest.finished},
                 {"reference", manifest.reference},
                 {"boot", manifest.boot},
                 {"complete", manifest.complete},
                 {"missingCount", manifest.missingCount},
                 {"missing", std::move(missing)},
                 {"tornCount", manifest.tornCount},
                 {"torn", manifest.torn},
                 {"unfinishedBackup", manifest.unfinishedBackup},
                 {"volumes", std::move(volumes)},
                 {"absentVolumes", manifest.absentVolumes}});
  return object;
}

std::optional<Manifest> readManifest(const std::string& snapshotPath) {
  const nlohmann::json object = hostkit::readJsonFile(manifestPath(snapshotPath), kManifestLimit);
  const std::int64_t format = integerOf(object, "format").value_or(0);
  if (format < kOldestFormat || format > kFormat) return std::nullopt;

  Manifest manifest;
  manifest += countsIn(object);
  manifest.computer = textOf(object, "computer");
  manifest.volume = textOf(object, "volume");
  manifest.source = textOf(object, "source");
  manifest.started = textOf(object, "started");
  manifest.finished = textOf(object, "finished");
  manifest.reference = textOf(object, "reference");
  manifest.boot = textOf(object, "boot");
  manifest.complete = flagOf(object, "complete");
  manifest.missingCount = countOf(object, "missingCount").value_or(0);
  for (const nlohmann::json& item : memberOf(object, "missing")) {
    manifest.missing.push_back({textOf(item, "path"), errorIn(item)});
  }
  manifest.tornCount = countOf(object, "tornCount").value_or(0);
  for (const nlohmann::json& path : memberOf(object, "torn")) {
    if (path.is_string()) manifest.torn.push_back(path.get<std::string>());
  }
  manifest.unfinishedBackup = flagOf(object, "unfinishedBackup");
  if (!isUsableFolderName(manifest.volume)) return std::nullopt;
  if (format <= kOneVolumeFormat) {
    manifest.volumes = {onlyVolumeOf(manifest)};
    return manifest;
  }
  const nlohmann::json& volumes = memberOf(object, "volumes");
  if (!volumes.is_array() || volumes.size() > kMostVolumes) return std::nullopt;
  for (const nlohmann::json& volume : volumes) manifest.volumes.push_back(volumeIn(volume));
  if (!areSound(manifest.volumes, manifest.volume)) return std::nullopt;
  manifest.absentVolumes = textsOf(object, "absentVolumes");
  return manifest;
}

Status writeManifest(const std::string& snapshotPath, const Manifest& manifest) {
  const std::string text =
      toJson(manifest).dump(kIndent, ' ', false, nlohmann::json::error_handler_t::replace);
  return host::writeFile(manifestPath(snapshotPath), text + "\n");
}

}  // namespace halyard::snapwheel
