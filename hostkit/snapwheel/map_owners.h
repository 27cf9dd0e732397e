// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Owners by name: for a restore onto a host whose accounts have other numbers.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <string>

#include "host/tree/extended_attributes.h"
#include "snapwheel/owner_names.h"

namespace halyard::snapwheel {

/// Which id becomes which; an id that stays is not in it.
struct OwnerMap {
  std::map<std::uint32_t, std::uint32_t> users;
  std::map<std::uint32_t, std::uint32_t> groups;
  bool empty() const { return users.empty() && groups.empty(); }
};

/// For names that this host knows under other ids.
OwnerMap ownerMapFor(const OwnerNames& names);

/// The value of an ACL attribute (system.posix_acl_access and _default) with its ids mapped. A
/// value that is none is given back as it is.
std::string mapAcl(std::string value, const OwnerMap& map);

/// Gives an item that is being copied the ids that the names have on this host, in its access
/// control lists too.
void mapOwners(const OwnerMap& map, struct stat& status, host::ExtendedAttributes& attributes);

}  // namespace halyard::snapwheel
