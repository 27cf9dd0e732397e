// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/coverage.h"

#include <filesystem>
#include <fstream>

#include "support/build_paths.h"

namespace halyard::test {

#ifdef HALYARD_COVERAGE

void shareCounters(const std::string& rootFolder) {
  namespace fs = std::filesystem;
  for (const auto& entry : fs::recursive_directory_iterator(buildFolder() + "/src")) {
    if (entry.path().extension() != ".gcno") continue;
    fs::path counters = entry.path();
    counters.replace_extension(".gcda");
    // An empty file counts as a new one; opened for appending, an existing one stays as it is.
    std::ofstream(counters, std::ios::app);
    const fs::path inside = rootFolder + counters.string();
    fs::create_directories(inside.parent_path());
    fs::create_hard_link(counters, inside);
  }
}

#else

void shareCounters(const std::string& /*rootFolder*/) {}

#endif

}  // namespace halyard::test
