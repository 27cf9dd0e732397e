// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman snapshots": what the repository holds of this host.
#pragma once

#include <string>

namespace halyard::hostkit {

/// Lists this host's snapshots, oldest first: name, age, what kind, which services it
/// holds whole, and which in part: nobody should count on those.
///
/// Prints:  a table, or with `asJson` an array of objects (name, path, time, inProgress, latest,
///          pin, signature, services, notOnThisHost,
///          incomplete: objects of name and reasons).
/// Returns: the exit status; an empty repository is a success.
int listSnapshots(bool asJson);

}  // namespace halyard::hostkit
