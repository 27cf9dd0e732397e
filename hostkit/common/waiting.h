// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// How long this process waits for another one that holds what it needs.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace halyard::hostkit {

/// The longest that a command line may ask for: a day.
inline constexpr std::chrono::seconds kLongestWait{24 * 60 * 60};

/// From now on, for so long in all; 0, as at the start, for not at all.
void setWait(std::chrono::seconds wait);

/// What is left of it, rounded up.
std::chrono::seconds waitLeft();

/// Tries until that succeeds or the time is over; at least once. The first time that it has to wait
/// it says for whom, in a note: "waiting for <whom()>".
bool waitFor(const std::function<bool()>& attempt, const std::function<std::string()>& whom);

}  // namespace halyard::hostkit
