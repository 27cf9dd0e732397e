// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// "helmsman verify": compares live services with a snapshot.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "helmsman/snapshots/host_snapshots.h"

namespace halyard::hostkit {

struct VerifyArguments {
  std::vector<std::string> services;  ///< None: all that a backup has to hold.
  std::string snapshot;
  bool json = false;
};

/// The number of mismatches in the diagnostic output of Halyard's verify command; absent when the
/// plug-in reported none at all, be it because it is missing or has failed.
std::optional<std::int32_t> mismatchesIn(std::string_view diagnosticOutput);

/// Verifies one service; absent when there was no answer.
std::optional<std::int32_t> verifyService(const std::string& service, const Snapshot& snapshot);

/// What is wrong with such an answer, and where its plug-in tells more; not for 0 mismatches.
std::string verifyProblem(const std::string& service,
                          const std::optional<std::int32_t>& mismatches);

/// Halyard's status is 0 whatever it finds, and it prints the count for diagnostics only: it is run
/// with them, and the count is taken from there.
/// Each service is compared with the newest snapshot that holds it whole, unless one is named.
///
/// A service that cannot be verified (no snapshot holds it, it has no descriptor, the preferences
/// do not list it) is named with the reason; one of which nothing is on this host is said to be so.
///
/// Returns: success when every service that is on this host answered, of a snapshot that holds it
///          whole, and no mismatch was found; kPartial when none was found and a service could not
///          be verified or only in part; kFailure after a mismatch, or when nothing was compared.
int verify(const VerifyArguments& arguments);

}  // namespace halyard::hostkit
