// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Owners by name: for a restore onto a host whose accounts have other numbers.
#pragma once

#include <cstdint>
#include <map>
#include <string>

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

/// Gives the copies of everything in a snapshot's volume the ids that the names have on this host;
/// set-id bits and capabilities stay. Other items of the target are not touched. Items that fail
/// are told on standard error and counted.
std::uint64_t mapOwners(const std::string& volumePath, const std::string& target,
                        const OwnerNames& names);

}  // namespace halyard::snapwheel
