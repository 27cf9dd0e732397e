// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Comparison of a service's live data with a snapshot.
#pragma once

#include <cstdint>
#include <string_view>

#include "frontend/run/command_line.h"

namespace halyard {

/// Runs the verify plug-in of the service in "-service" on its folder in the snapshot "-path".
///
/// Reads:   the two options; the descriptor's VerifyBinaryPath, ServiceName, VerifyLog.
/// Runs:    the plug-in once; its exit status is not looked at.
/// Prints:  the unknown-service message; else nothing outside debug and verbose mode.
/// Returns: mismatches reported, 0 for none; 99 for an unknown service or no summary line.
std::int32_t Verify(const CommandLine& line);

/// The value of the last line that begins with "Number of failures to match": the integer at its
/// 32nd character, 0 when the line is shorter or holds no digits there; 99 without such a line.
std::int32_t failuresReported(std::string_view output);

}  // namespace halyard
