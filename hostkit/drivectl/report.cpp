// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "drivectl/report.h"

#include <nlohmann/json.hpp>

#include "common/sizes.h"
#include "common/table.h"

namespace halyard::hostkit {

namespace {

const char* identityWord(const host::Volume& volume) {
  return volume.identity == host::Volume::Identity::fileSystem ? "filesystem" : "root folder";
}

}  // namespace

PropertyDictionary volumeDictionary(const host::Volume& volume) {
  PropertyDictionary dictionary;
  dictionary.set("VolumeUUID", volume.uuid);
  dictionary.set("VolumeUUIDSource", identityWord(volume));
  if (!volume.device.empty()) dictionary.set("DeviceNode", volume.device);
  if (!volume.type.empty()) dictionary.set("FilesystemType", volume.type);
  if (!volume.label.empty()) dictionary.set("VolumeName", volume.label);
  dictionary.set("MountPoint", volume.mountPoint);
  dictionary.set("TotalSize", static_cast<std::int64_t>(volume.totalBytes));
  dictionary.set("FreeSpace", static_cast<std::int64_t>(volume.freeBytes));
  dictionary.set("AvailableSpace", static_cast<std::int64_t>(volume.availableBytes));
  dictionary.set("ReadOnly", volume.readOnly);
  return dictionary;
}

nlohmann::json volumeJson(const host::Volume& volume) {
  nlohmann::json document = {
      {"VolumeUUID", volume.uuid},       {"VolumeUUIDSource", identityWord(volume)},
      {"MountPoint", volume.mountPoint}, {"TotalSize", volume.totalBytes},
      {"FreeSpace", volume.freeBytes},   {"AvailableSpace", volume.availableBytes},
      {"ReadOnly", volume.readOnly}};
  if (!volume.device.empty()) document["DeviceNode"] = volume.device;
  if (!volume.type.empty()) document["FilesystemType"] = volume.type;
  if (!volume.label.empty()) document["VolumeName"] = volume.label;
  return document;
}

std::string volumeText(const host::Volume& volume) {
  TableRows rows = {{"Volume UUID:", volume.uuid + " (of the " + identityWord(volume) + ")"},
                    {"Device:", volume.device.empty() ? "unknown" : volume.device},
                    {"Type:", volume.type.empty() ? "unknown" : volume.type}};
  if (!volume.label.empty()) rows.push_back({"Label:", volume.label});
  rows.push_back({"Mounted at:", volume.mountPoint + (volume.readOnly ? " (read-only)" : "")});
  rows.push_back({"Size:", sizeText(volume.totalBytes)});
  rows.push_back({"Free:", sizeText(volume.freeBytes)});
  return factsText(rows);
}

std::string volumeTable(const std::vector<host::Volume>& volumes) {
  std::vector<std::vector<std::string>> rows = {
      {"MOUNT POINT", "DEVICE", "TYPE", "SIZE", "FREE", "LABEL", "UUID"}};
  const auto orDash = [](const std::string& text) { return text.empty() ? "-" : text; };
  for (const host::Volume& volume : volumes) {
    rows.push_back({volume.mountPoint, orDash(volume.device), orDash(volume.type),
                    sizeText(volume.totalBytes), sizeText(volume.freeBytes), orDash(volume.label),
                    volume.uuid});
  }
  return tableText(rows);
}

}  // namespace halyard::hostkit
