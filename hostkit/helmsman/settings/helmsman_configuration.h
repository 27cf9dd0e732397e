// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// helmsman's own configuration, which an administrator writes.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace halyard::hostkit {

inline constexpr std::chrono::minutes kUsualStallLimit{30};
inline constexpr char kLeaveOutKey[] = "leave-out";

struct HelmsmanConfiguration {
  /// How long a plug-in may make no progress; absent when nothing is set.
  std::optional<std::chrono::seconds> stallLimit;
  std::map<std::string, std::chrono::seconds> serviceStallLimits;
  std::vector<std::string> leftOut;  ///< Where volumes are mounted that are left out on purpose.

  /// The service's own, else the general one.
  std::chrono::seconds stallLimitOf(const std::string& service) const;
};

/// Of /etc/halyard-host/helmsman.conf ("stall-limit", "leave-out") and of the files NAME.conf in
/// /etc/halyard-host/services ("stall-limit"). Absent, with the reason, when a file cannot be read,
/// has another key, or a value that means nothing.
std::optional<HelmsmanConfiguration> helmsmanConfiguration(std::string& problem);

}  // namespace halyard::hostkit
