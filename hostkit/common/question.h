// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Questions to the administrator before something is overwritten or deleted.
#pragma once

#include <string>

namespace halyard::hostkit {

/// Asks on the terminal; only "y" or "yes" says yes. Without a terminal on standard input nothing
/// is asked: that is a no, and the message names --yes.
bool confirmed(const std::string& question);

}  // namespace halyard::hostkit
