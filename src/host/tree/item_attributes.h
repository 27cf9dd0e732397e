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

/// What an item could not be given, because its file system cannot hold it.
struct LostAttributes {
  bool owner = false;
  bool permissions = false;
  bool extended = false;

  bool any() const { return owner || permissions || extended; }
};

/// Gives a regular file or folder the owner, extended attributes, permissions and times of its
/// source, in the order in which none undoes another: a change of owner takes set-id bits and
/// capabilities away, an access control list changes the group's permissions. With `lost` what the
/// file system cannot hold is told there and the rest given, nothing of it to more than its source
/// gives it to: no set-id bits without the owner, nothing to the group without the list.
int giveAttributes(int item, const struct stat& source, const ExtendedAttributes& attributes,
                   const GivenAttributes& given, LostAttributes* lost = nullptr);

/// The same for any other kind of item, and for a link itself.
int giveAttributesByName(int folder, const char* name, const struct stat& source,
                         const ExtendedAttributes& attributes, const GivenAttributes& given,
                         LostAttributes* lost = nullptr);

}  // namespace halyard::host
