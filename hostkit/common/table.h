// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Text in columns.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace halyard::hostkit {

using TableRows = std::vector<std::vector<std::string>>;

/// A list under the headings of its first row, for standard output: columns as wide as their widest
/// cell on a terminal (wide letters take two), two blanks between, no blanks at line ends, each
/// line ended by a line feed. A row may be shorter. Cells are shown as visibleText.
///
/// On a terminal that is too narrow the last column is folded between words; where that is not
/// enough, each row becomes lines of a heading and a cell. Nothing is cut off: half a figure would
/// be another one.
std::string tableText(const TableRows& rows);
/// The same for lines of so many columns; 0 for as many as it takes.
std::string tableText(const TableRows& rows, std::size_t width);

/// Rows of a name and a value without headings, likewise; long values are folded.
std::string factsText(const TableRows& rows);
std::string factsText(const TableRows& rows, std::size_t width);

}  // namespace halyard::hostkit
