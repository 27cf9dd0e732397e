// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The UUID of a mounted file system as the kernel tells it, for roots without /dev and /proc.
#pragma once

#include <string>

namespace halyard::host {

/// Of the file system that holds the open folder; empty for one that tells none.
std::string kernelUuid(int folder);

}  // namespace halyard::host
