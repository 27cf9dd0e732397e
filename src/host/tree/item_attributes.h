// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Owner, mode and times, together with the extended attributes that depend on their order.
#pragma once

#include <sys/stat.h>

#include "host/tree/extended_attributes.h"

namespace halyard::host {

inline constexpr mode_t kPermissionBits = 07777;

/// What an item has already, so that nothing is set twice.
struct GivenAttributes {
  uid_t owner = 0;
  gid_t group = 0;
  mode_t permissions = 0;
};

/// Gives a regular file or folder the owner, extended attributes, permissions and times of its
/// source, in the order in which none undoes another: a change of owner takes set-id bits and
/// capabilities away, an access control list changes the group's permissions.
int giveAttributes(int item, const struct stat& source, const ExtendedAttributes& attributes,
                   const GivenAttributes& given);

/// The same for any other kind of item, and for a link itself.
int giveAttributesByName(int folder, const char* name, const struct stat& source,
                         const ExtendedAttributes& attributes, const GivenAttributes& given);

}  // namespace halyard::host
