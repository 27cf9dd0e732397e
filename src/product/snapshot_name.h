// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Names of snapshots: the second at which each was begun, in UTC.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace halyard {

using Instant = std::chrono::sys_seconds;

/// What a snapshot's name carries at its end until it is complete, or for ever when it was
/// interrupted; and the same as an extension.
inline constexpr std::string_view kInProgress = ".inProgress";
inline constexpr std::string_view kInProgressExtension = kInProgress.substr(1);

/// "YYYY-MM-DD-HHMMSS".
std::string snapshotName(Instant instant);

/// The inverse; absent for a text that no instant gives ("2026-02-30-000000" among them), and for
/// years before 1970 and after 9998.
std::optional<Instant> snapshotInstant(std::string_view name);

/// Whether the name belongs to something that is being made or removed.
bool isInProgress(std::string_view name);

/// The name without kInProgress; the name itself when it has none.
std::string_view completedName(std::string_view name);

/// The instant that a snapshot begun now is named after: now, or the second after the newest one
/// when the clock is not past that, so that a later snapshot always has the later name.
Instant nextInstant(Instant now, std::optional<Instant> newest);

}  // namespace halyard
