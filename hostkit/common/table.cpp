// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/table.h"

#include <libsmartcols.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "common/terminal.h"
#include "common/visible_text.h"

namespace halyard::hostkit {

namespace {

// A column narrower than this is no reading.
constexpr std::size_t kLeastFolded = 12;
constexpr std::size_t kGap = 2;

using Table = std::unique_ptr<libscols_table, decltype(&scols_unref_table)>;

void check(bool done) {
  if (!done) throw std::bad_alloc();  // The library fails for want of memory alone.
}

Table emptyTable() {
  Table table(scols_new_table(), scols_unref_table);
  check(table != nullptr);
  check(scols_table_enable_noheadings(table.get(), 1) == 0);
  // The cells are made visible here, alike in every locale.
  check(scols_table_enable_noencoding(table.get(), 1) == 0);
  check(scols_table_set_column_separator(table.get(), "  ") == 0);
  check(scols_table_set_termforce(table.get(), SCOLS_TERMFORCE_NEVER) == 0);
  return table;
}

std::vector<std::size_t> columnWidths(const TableRows& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    if (row.size() > widths.size()) widths.resize(row.size(), 0);
    for (std::size_t column = 0; column < row.size(); ++column) {
      widths[column] = std::max(widths[column], columnsOf(visibleText(row[column])));
    }
  }
  return widths;
}

// What stands before the last column.
std::size_t indentOf(const std::vector<std::size_t>& widths) {
  std::size_t indent = 0;
  for (std::size_t column = 0; column + 1 < widths.size(); ++column) {
    indent += widths[column] + kGap;
  }
  return indent;
}

bool fits(const std::vector<std::size_t>& widths, std::size_t width) {
  return indentOf(widths) + std::min(widths.back(), kLeastFolded) <= width;
}

// Where a line of so many columns ends: between words, behind the slash of a long word, or
// anywhere.
std::size_t endOfLine(std::string_view text, std::size_t width) {
  const std::size_t most = cutToColumns(text, width).size();
  const std::size_t blank = text.rfind(' ', most);
  if (blank != std::string_view::npos && blank > 0) return blank;
  const std::size_t slash = text.substr(0, most).rfind('/');
  return slash != std::string_view::npos && slash > 0 ? slash + 1 : most;
}

std::string folded(std::string_view text, std::size_t width) {
  std::string lines;
  while (columnsOf(text) > width) {
    const std::size_t end = endOfLine(text, width);
    lines.append(text.substr(0, end)).append("\n");
    text.remove_prefix(end);
    if (text.starts_with(' ')) text.remove_prefix(1);
  }
  return lines.append(text);
}

void addRow(libscols_table* table, const std::vector<std::string>& row, std::size_t columns,
            std::size_t lastWidth) {
  libscols_line* line = scols_table_new_line(table, nullptr);
  check(line != nullptr);
  for (std::size_t column = 0; column < row.size(); ++column) {
    std::string text = visibleText(row[column]);
    if (column + 1 == columns && lastWidth != 0) text = folded(text, lastWidth);
    check(scols_line_set_data(line, column, text.c_str()) == 0);
  }
}

std::string withoutTrailingBlanks(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    result.append(line.substr(0, line.find_last_not_of(' ') + 1)).append("\n");
    text.remove_prefix(std::min(text.size(), line.size() + 1));
  }
  return result;
}

std::string render(const TableRows& rows, const std::vector<std::size_t>& widths,
                   std::size_t width) {
  const Utf8Scope scope;
  const Table table = emptyTable();
  const std::size_t columns = widths.size();
  for (std::size_t column = 1; column <= columns; ++column) {
    const int flags = column == columns ? SCOLS_FL_WRAP : 0;
    libscols_column* made = scols_table_new_column(table.get(), "", 0, flags);
    check(made != nullptr && scols_column_set_wrapfunc(made, scols_wrapnl_chunksize,
                                                       scols_wrapnl_nextchunk, nullptr) == 0);
  }
  const std::size_t lastWidth =
      width == 0 ? 0 : std::max(kLeastFolded, width - std::min(width, indentOf(widths)));
  for (const auto& row : rows) addRow(table.get(), row, columns, lastWidth);
  char* text = nullptr;
  check(scols_print_table_to_string(table.get(), &text) == 0 && text != nullptr);
  const std::unique_ptr<char, decltype(&std::free)> owner(text, std::free);
  return withoutTrailingBlanks(text);
}

// A block of headings and cells for each row, an empty line between.
std::string blocksText(const TableRows& rows, std::size_t width) {
  const std::vector<std::string>& headings = rows.front();
  std::string text;
  for (std::size_t index = 1; index < rows.size(); ++index) {
    TableRows block;
    for (std::size_t column = 0; column < rows[index].size(); ++column) {
      block.push_back({column < headings.size() ? headings[column] : "", rows[index][column]});
    }
    text += (text.empty() ? "" : "\n") + factsText(block, width);
  }
  return text;
}

}  // namespace

std::string tableText(const TableRows& rows) {
  return tableText(rows, terminalWidth(STDOUT_FILENO));
}

std::string tableText(const TableRows& rows, std::size_t width) {
  const std::vector<std::size_t> widths = columnWidths(rows);
  if (widths.empty()) return {};
  if (width != 0 && rows.size() > 1 && !fits(widths, width)) return blocksText(rows, width);
  return render(rows, widths, width);
}

std::string factsText(const TableRows& rows) {
  return factsText(rows, terminalWidth(STDOUT_FILENO));
}

std::string factsText(const TableRows& rows, std::size_t width) {
  const std::vector<std::size_t> widths = columnWidths(rows);
  return widths.empty() ? std::string() : render(rows, widths, width);
}

}  // namespace halyard::hostkit
