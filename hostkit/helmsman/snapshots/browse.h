// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman browse": what a snapshot holds of a service.
#pragma once

#include <string>

namespace halyard::hostkit {

struct BrowseArguments {
  std::string service = "all";  ///< A name, the beginning of one, or "all".
  std::string snapshot;         ///< A name, the beginning of one, a path; empty for the latest.
  std::string option;           ///< Handed to the service's plug-in.
};

/// Checks that the snapshot holds the service, warns when it holds only a part of it, then prints
/// Halyard's answer.
///
/// Returns: success when there is an answer; failure when Halyard warns that there is none.
int browse(const BrowseArguments& arguments);

}  // namespace halyard::hostkit
