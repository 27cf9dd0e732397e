// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The name under which this host's snapshots are kept.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/property_list.h"

namespace halyard {

inline constexpr const char* kUnknownComputer = "Unknown_Computer";

/// The host's computer name; kUnknownComputer when it cannot be read.
std::string computerName();

/// "System", "System", "ComputerName" of the host configuration; kUnknownComputer when any step
/// finds nothing.
std::string computerNameIn(const std::optional<PropertyDictionary>& configuration);

/// Puts the name where computerNameIn finds it and leaves everything else as it is.
void setComputerName(PropertyDictionary& configuration, const std::string& name);

/// A computer name made from a host name: its first label, without characters that a folder of the
/// repository cannot have; kUnknownComputer when nothing is left.
std::string computerNameFromHostName(std::string_view hostName);

/// Whether a folder of this name in the repository would be found and listed.
bool isUsableComputerName(std::string_view name);

}  // namespace halyard
