// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Lints the command lines of a descriptor, which are split at every single blank.
#pragma once

#include <string>

#include "helmsman/lint/finding.h"

namespace halyard::hostkit {

/// Checks one command line: an absolute executable, no blanks in its path, no quotes (they are
/// passed on as they stand), no two blanks in a row (they make an empty argument).
void lintCommandLine(const std::string& key, const std::string& command, FindingList& list);

}  // namespace halyard::hostkit
