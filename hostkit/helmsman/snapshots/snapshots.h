// "helmsman snapshots": what the repository holds of this host.
#pragma once

#include <string>

namespace halyard::hostkit {

/// Lists this host's snapshots, oldest first: name, age, what kind, which services.
///
/// Prints:  a table, or with `asJson` an array of objects (name, path, time, inProgress, latest,
///          signature, services, notOnThisHost).
/// Returns: the exit status; an empty repository is a success.
int listSnapshots(bool asJson);

}  // namespace halyard::hostkit
