// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Change times, which every change of an item sets and nobody chooses.
#pragma once

#include <sys/stat.h>

namespace halyard::host {

/// The time now; a change from here on bears one that is less than a tick earlier.
struct timespec timeOfChanges();

/// Two changes this close can leave one change time: 20 ms where times have a fraction (a tick of
/// the clock is at most 10 ms), two seconds on file systems that keep whole seconds.
struct timespec tickOf(const struct stat& status);

inline bool sameTime(const struct timespec& left, const struct timespec& right) {
  return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

/// Whether the item has changed last so long before that moment that a change after it shows.
bool isBefore(const struct stat& status, const struct timespec& moment);

}  // namespace halyard::host
