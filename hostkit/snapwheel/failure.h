// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// How a command of the engine ends early.
#pragma once

#include <string>

#include "base/result.h"
#include "common/program.h"

namespace halyard::snapwheel {

using hostkit::Failure;

/// For what the host could not do.
Failure failureOf(const Error& error);

/// "<what>: <the system's text for the errno value>".
std::string errorText(const std::string& what, int error);

}  // namespace halyard::snapwheel
