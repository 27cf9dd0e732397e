// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Private roots as tools/private-root lays them out, made in a few milliseconds.
#pragma once

#include <string>

namespace halyard::test {

/// Makes a root of the empty folder, which lies in the build folder's "private-roots".
///
/// Runs:   tools/private-root, once for each build of the programs, for a template beside the
/// folder. Writes: hard links of the template's programs, libraries and devices; fresh copies of
/// the rest. Ends:   the test program, when it cannot.
void makeRoot(const std::string& folder);

}  // namespace halyard::test
