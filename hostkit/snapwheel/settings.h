// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What the engine is told by its preference file and finds out from the host.
#pragma once

#include <optional>
#include <string>

#include "base/property_list.h"
#include "snapwheel/retention.h"

namespace halyard::snapwheel {

/// The folder that receives snapshots: what the given alias record leads to, else the engine's
/// preference "BackupAlias". Throws Failure with what an administrator can do when it leads
/// nowhere.
std::string findDestination(const std::string& aliasRecord);

/// "DaysToRetain" of the engine's preferences; 0 when there is none or it is negative.
unsigned preferredDays(const std::optional<PropertyDictionary>& enginePreferences);

}  // namespace halyard::snapwheel
