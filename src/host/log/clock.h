// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The time of day as records and logs show it.
#pragma once

#include <string>

namespace halyard::host {

/// Now, as "YYYY-MM-DD HH:MM:SS +0000": the instant in UTC, whatever TZ says.
std::string currentDateText();

}  // namespace halyard::host
