// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What drivectl tells of a volume, in its three forms.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "base/property_list.h"
#include "host/volumes/volume.h"

namespace halyard::hostkit {

/// The keys are part of the interface: VolumeUUID, VolumeUUIDSource, DeviceNode, FilesystemType,
/// VolumeName, MountPoint, TotalSize, FreeSpace, AvailableSpace (bytes), ReadOnly. A device, type
/// or label that is not known is left out.
PropertyDictionary volumeDictionary(const host::Volume& volume);
nlohmann::json volumeJson(const host::Volume& volume);
/// "Label: value" lines for people.
std::string volumeText(const host::Volume& volume);
/// One line a volume under a heading, in columns.
std::string volumeTable(const std::vector<host::Volume>& volumes);

}  // namespace halyard::hostkit
