// The function-log lines of a command's output.
#pragma once

#include <string>
#include <vector>

#include "support/private_root.h"

namespace halyard::test {

inline constexpr const char* kDashes = "-------------------------------------------------------+";

/// The lines that end in 55 dashes and "+", in order and without these; a line with more or fewer
/// dashes keeps the rest of them.
inline std::vector<std::string> functionLines(const std::string& output) {
  const std::string dashes = kDashes;
  std::vector<std::string> found;
  for (const std::string& line : linesOf(output)) {
    if (line.ends_with(dashes)) found.push_back(line.substr(0, line.size() - dashes.size()));
  }
  return found;
}

}  // namespace halyard::test
