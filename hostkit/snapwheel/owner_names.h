// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The names behind the numeric owners in a snapshot, for a host where they have other numbers.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "base/result.h"
#include "common/record_file.h"

namespace halyard::snapwheel {

using hostkit::RecordPlace;

/// The ids that a tree uses.
struct OwnerIds {
  std::set<uid_t> users;
  std::set<gid_t> groups;
};

/// Account names by id; an id without a name is not in it.
struct OwnerNames {
  std::map<std::uint32_t, std::string> users;
  std::map<std::uint32_t, std::string> groups;
};

/// Looks the ids up in the account files below `root`; for "/" also in whatever else the host's
/// name service knows.
OwnerNames namesOf(const OwnerIds& ids, const std::string& root);

/// owners.json; false or absent on any error.
Status writeOwnerNames(const RecordPlace& place, const OwnerNames& names);
std::optional<OwnerNames> readOwnerNames(const RecordPlace& place);

}  // namespace halyard::snapwheel
