// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// What the commands of the command line share.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "common/exclusions.h"
#include "snapwheel/commands.h"
#include "snapwheel/repository.h"

namespace halyard::snapwheel {

/// The part of the repository that the options name. Throws Failure.
Repository openRepository(const CommandOptions& options);

/// The same, for what changes this host's folder there: it must be this machine's. Another host's
/// is the affair of the administrator who names it.
Repository openToChange(const CommandOptions& options);

/// What is left out by the file and the options. Throws Failure when the file cannot be read.
hostkit::Exclusions exclusionsFor(const CommandOptions& options);

/// "0.4 s": since then.
std::string secondsText(std::chrono::steady_clock::time_point begin);

/// "1 item", "2 items".
std::string countText(std::uint64_t count, const char* noun);

}  // namespace halyard::snapwheel
