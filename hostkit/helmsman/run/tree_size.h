// How much a tree holds.
#pragma once

#include <cstdint>
#include <string>

namespace halyard::hostkit {

/// The sizes of the regular files at and below `path`, each counted once whatever names it has,
/// following no link and entering no other file system; 0 when there is nothing.
std::uint64_t treeBytes(const std::string& path);

}  // namespace halyard::hostkit
