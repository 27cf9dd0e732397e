// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// helmsman's own configuration, which an administrator writes.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halyard::hostkit {

inline constexpr std::chrono::minutes kUsualStallLimit{30};
inline constexpr char kLeaveOutKey[] = "leave-out";
inline constexpr char kIncludeKey[] = "include";

inline constexpr char kScrubKey[] = "scrub";

/// How often a part of the repository is read and compared.
enum class ScrubPeriod { off, weekly, monthly };
const char* scrubWord(ScrubPeriod period);
std::optional<ScrubPeriod> parseScrubPeriod(std::string_view word);

inline constexpr unsigned kUsualScrubParts = 6;
inline constexpr unsigned kMostScrubParts = 366;

struct HelmsmanConfiguration {
  /// How long a plug-in may make no progress; absent when nothing is set.
  std::optional<std::chrono::seconds> stallLimit;
  std::map<std::string, std::chrono::seconds> serviceStallLimits;
  std::optional<ScrubPeriod> scrub;        ///< Absent when nothing was ever chosen.
  unsigned scrubParts = kUsualScrubParts;  ///< All of them together are the repository.
  std::vector<std::string> leftOut;   ///< Where volumes are mounted that are left out on purpose.
  std::vector<std::string> included;  ///< Where those are that are taken though no rule says so.

  /// The service's own, else the general one.
  std::chrono::seconds stallLimitOf(const std::string& service) const;
};

/// Of /etc/halyard-host/helmsman.conf ("stall-limit", "leave-out",
/// "include", "scrub", "scrub-parts") and of the files NAME.conf in
/// /etc/halyard-host/services ("stall-limit"). Absent, with the reason, when a file cannot be read,
/// has another key, or a value that means nothing.
std::optional<HelmsmanConfiguration> helmsmanConfiguration(std::string& problem);

}  // namespace halyard::hostkit
