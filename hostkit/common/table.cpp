#include "common/table.h"

#include <algorithm>

#include "base/text.h"
#include "common/visible_text.h"

namespace halyard::hostkit {

std::string tableText(const std::vector<std::vector<std::string>>& cells) {
  std::vector<std::vector<std::string>> rows = cells;
  for (auto& row : rows) {
    for (std::string& cell : row) cell = visibleText(cell);
  }
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    if (row.size() > widths.size()) widths.resize(row.size(), 0);
    for (std::size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], characterCount(row[column]));
    }
  }

  std::string text;
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
      line += row[column];
      line.append(widths[column] - characterCount(row[column]) + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + "\n";
  }
  return text;
}

}  // namespace halyard::hostkit
