// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The host's system log (syslog) and the platform log (standard error and syslog).
#pragma once

#include <string_view>

namespace halyard::host {

/// Severity "error" in the default facility.
inline constexpr int kErrorPriority = 3;

/// Sends one record with the given priority value (facility and severity combined as in syslog(3)).
/// A missing or stuck log daemon neither blocks nor fails the caller.
void systemLog(int priority, std::string_view message);

/// Writes "<date> Halyard[<pid>] <message>" and a line feed to standard error and sends the message
/// to the system log as a notice. One trailing line feed of the message is not doubled.
void platformLog(std::string_view message);

}  // namespace halyard::host
