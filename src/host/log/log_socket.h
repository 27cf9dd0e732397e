// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// The log daemon's socket: one record, framed as the C library frames it, without ever blocking.
//
// syslog(3) itself waits without limit for a daemon that has stopped reading, and a backup must not
// stop for that.
#pragma once

#include <chrono>
#include <ctime>
#include <string>
#include <string_view>

namespace halyard::host {

/// "<priority>Mmm dd hh:mm:ss name[process]: message", the time in the host's own zone. A priority
/// without a facility gets that of user programs; the message ends at its first NUL.
std::string logRecord(int priority, std::string_view message, std::time_t now,
                      std::string_view name, int process);

/// Sends one record to the socket at the path, of either kind that daemons use. 0, or an errno
/// value: the one of connect(2) when no daemon listens, EAGAIN when one has not taken the record
/// within the given time.
int sendLogRecord(const std::string& socketPath, std::string_view record,
                  std::chrono::milliseconds patience);

}  // namespace halyard::host
