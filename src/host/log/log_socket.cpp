// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host/log/log_socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/syslog.h>
#include <sys/un.h>

#include <array>
#include <cerrno>

#include "host/files/descriptor.h"

namespace halyard::host {

namespace {

/// Connected to the daemon, or none with errno set.
Descriptor connected(const sockaddr_un& address, int kind) {
  Descriptor socket(::socket(AF_UNIX, kind | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket) return socket;
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  if (::connect(socket.get(), generic, sizeof address) == 0) return socket;
  const int error = errno;
  socket.reset();
  errno = error;
  return socket;
}

/// Takes what was sent off the front, so that a stream can go on where it stopped.
int sendAll(int socket, std::string_view& bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0) return errno == ENOBUFS ? EAGAIN : errno;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return 0;
}

}  // namespace

std::string logRecord(int priority, std::string_view message, std::time_t now,
                      std::string_view name, int process) {
  if ((priority & LOG_FACMASK) == 0) priority |= LOG_USER;
  std::tm local{};
  ::localtime_r(&now, &local);
  std::array<char, 32> date{};
  // No locale is ever set, so the month is the English one that daemons expect.
  const std::size_t length = std::strftime(date.data(), date.size(), "%b %e %T ", &local);
  std::string record = "<" + std::to_string(priority & (LOG_FACMASK | LOG_PRIMASK)) + ">";
  record.append(date.data(), length).append(name);
  record += "[" + std::to_string(process) + "]: ";
  return record.append(message.substr(0, message.find('\0')));
}

int sendLogRecord(const std::string& socketPath, std::string_view record,
                  std::chrono::milliseconds patience) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (socketPath.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  socketPath.copy(address.sun_path, socketPath.size());
  std::string bytes(record);
  Descriptor socket = connected(address, SOCK_DGRAM);
  if (!socket && errno == EPROTOTYPE) {
    bytes += '\0';  // On a stream it ends the record.
    socket = connected(address, SOCK_STREAM);
  }
  if (!socket) return errno;
  std::string_view rest = bytes;
  const int error = sendAll(socket.get(), rest);
  if (error != EAGAIN) return error;
  // A queue of ten records is common: a daemon that is only busy gets a moment.
  pollfd entry{socket.get(), POLLOUT, 0};
  if (::poll(&entry, 1, static_cast<int>(patience.count())) <= 0) return EAGAIN;
  return sendAll(socket.get(), rest);
}

}  // namespace halyard::host
