// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The services that have an enable flag, and what the flags mean.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "base/property_list.h"

namespace halyard {

/// The seven, in the order in which they are always tested.
inline constexpr std::array<std::string_view, 7> kKnownServices = {
    "agendaHost", "parleyHost", "rosterHost", "depotHost", "postHost", "hostProfile", "siteHost"};

/// The place of a name among kKnownServices, exactly; absent for any other.
std::optional<std::size_t> knownServiceIndex(std::string_view name);

bool isKnownService(std::string_view name);

/// Whether a backup takes the service: the seven when their flag is not 0, any other always.
bool isBackedUp(std::string_view name, std::int32_t flag);
/// The same, with the flag as the "services" dictionary of the preferences has it, 0 when absent.
bool isBackedUp(const PropertyDictionary& services, std::string_view name);

}  // namespace halyard
