// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/log/system_log.h"

#include <poll.h>
#include <sys/syslog.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <string>

#include "host/log/clock.h"
#include "host/log/log_socket.h"

namespace halyard::host {

namespace {

constexpr const char* kName = "Halyard";
constexpr const char* kLogSocket = "/dev/log";

/// Whether a write that failed may be tried again.
bool canGoOn(int descriptor) {
  if (errno == EINTR) return true;
  if (errno != EAGAIN) return false;
  // Somebody made the terminal or pipe non-blocking: wait as a plain write would have.
  pollfd entry{descriptor, POLLOUT, 0};
  return ::poll(&entry, 1, -1) > 0 || errno == EINTR;
}

/// A closed or broken standard error loses the line, not the run.
void writeLine(int descriptor, std::string_view line) {
  while (!line.empty()) {
    const ssize_t written = ::write(descriptor, line.data(), line.size());
    if (written > 0) {
      line.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || !canGoOn(descriptor)) {
      return;
    }
  }
}

}  // namespace

void systemLog(int priority, std::string_view message) {
  // A daemon that is stuck costs the run this much once, not once a record.
  static std::chrono::milliseconds patience{100};
  const std::string record = logRecord(priority, message, std::time(nullptr), kName, ::getpid());
  if (sendLogRecord(kLogSocket, record, patience) == EAGAIN) patience = {};
}

void platformLog(std::string_view message) {
  if (message.ends_with('\n')) message.remove_suffix(1);
  std::string line = currentDateText() + " " + kName + "[" + std::to_string(::getpid()) + "] ";
  line.append(message).append("\n");
  writeLine(STDERR_FILENO, line);
  systemLog(LOG_NOTICE, message);
}

}  // namespace halyard::host
