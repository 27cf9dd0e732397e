// Text in columns.
#pragma once

#include <string>
#include <vector>

namespace halyard::hostkit {

/// The rows with their cells padded to the widest of their column (counted in characters), two
/// blanks between, no blanks at line ends, each line ended by a line feed. A row may be shorter.
/// What a terminal must not be given is escaped.
std::string tableText(const std::vector<std::vector<std::string>>& cells);

}  // namespace halyard::hostkit
