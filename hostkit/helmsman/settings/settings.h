// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman settings backup": the repair that Halyard runs when a preference file is missing.
#pragma once

#include <string>
#include <vector>

#include "base/property_list.h"

namespace halyard::hostkit {

/// What a new service preference file says: the seven services, 1 for each whose descriptor is
/// installed, else 0.
PropertyDictionary defaultServicePreferences(const std::vector<std::string>& installedNames);

/// What a new engine preference file says: automatic backups off, no destination, every night at
/// two, a month of snapshots.
PropertyDictionary defaultEnginePreferences();

/// Writes each preference file that is missing, with its folder; never touches one that is there,
/// whatever it holds. A host that has neither the service preferences nor any descriptor yet gets
/// the links of every shipped service first.
///
/// Prints:  a note for each file written; an error for each that could not be.
/// Returns: the exit status.
int repairSettings();

}  // namespace halyard::hostkit
