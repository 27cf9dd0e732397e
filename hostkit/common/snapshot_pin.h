// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A pinned snapshot stays: no retention rule and no plain deletion removes it. The pin is a file in
// the snapshot, <snapshot>/.snapwheel/pin.
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "base/result.h"

namespace halyard::hostkit {

inline constexpr std::size_t kNoteLimit = 1000;  ///< Bytes.

struct Pin {
  std::string note;  ///< What it is for; at most kNoteLimit bytes, whoever wrote it.
  std::string time;  ///< When it was made, as timeText; empty when unknown.
};

/// Absent without a pin. Whatever stands in its place is one: of what cannot be read the note says
/// so.
std::optional<Pin> readPin(const std::string& snapshotPath);

/// Puts the pin in place of another one. On disk when this returns.
Status writePin(const std::string& snapshotPath, const Pin& pin);
Status removePin(const std::string& snapshotPath);

/// "pinned", or "pinned (before the upgrade)".
std::string pinText(const Pin& pin);

/// {"note": ..., "time": ...}; null for none.
nlohmann::json pinJson(const std::optional<Pin>& pin);

}  // namespace halyard::hostkit
