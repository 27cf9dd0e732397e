// Where the metadata folder lies inside a snapshot.
#pragma once

#include <string>

namespace halyard {

/// Whether each entry that is looked at is named in the platform log in debug mode.
enum class EntryLines { none, logged };

/// The metadata folder of a snapshot: <folder>/<entry>/.Halyards for the last top-level entry, in
/// name order, at which that is a directory; empty when there is none. An empty folder path has no
/// entries.
std::string findSnapshotMetadataFolder(const std::string& folder, EntryLines lines);

}  // namespace halyard
