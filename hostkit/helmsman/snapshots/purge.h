// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman purge": removes one snapshot.
#pragma once

#include <string>

namespace halyard::hostkit {

struct PurgeArguments {
  std::string snapshot;  ///< A name, the beginning of one, or a path.
  bool yes = false;      ///< Do not ask.
  bool latest = false;   ///< The latest one may go too.
};

/// Has Halyard purge the snapshot, after the checks that it makes silently: in progress, no
/// signature; and a pin, of which Halyard knows nothing. Its status does not tell a purge from
/// none, so the folder is looked at afterwards.
///
/// Returns: success when the snapshot is gone.
int purge(const PurgeArguments& arguments);

}  // namespace halyard::hostkit
