// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman check": lints descriptors and preferences.
#pragma once

namespace halyard::hostkit {

struct CheckArguments {
  bool json = false;
  bool noSize = false;  ///< Do not ask the backup programs for their size.
};

/// Prints each finding with file, key and what to do.
///
/// Runs:    the size query of every installed backup program, unless told not to.
/// Returns: failure when a finding is an error; warnings alone are a success.
int check(const CheckArguments& arguments);

}  // namespace halyard::hostkit
