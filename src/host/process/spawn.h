// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The start of a child: its streams, descriptors, signals and environment.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "host/files/descriptor.h"

namespace halyard::host {

/// A child that was started, and this process's ends of its two streams.
struct SpawnedChild {
  pid_t process = 0;
  Descriptor output;
  Descriptor error;
};

/// Starts the executable at the path (argv[0] is the path). The child reads nothing (/dev/null),
/// has no descriptor above 2, default signal dispositions and an empty mask; its environment is
/// this process's, with LC_ALL=C on top when asked for. 0, or the errno value of what failed;
/// nothing is left open or running then.
int spawnChild(const std::string& path, const std::vector<std::string>& arguments, bool plainLocale,
               SpawnedChild& child);

}  // namespace halyard::host
