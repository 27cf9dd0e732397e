// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/items.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace halyard::test {

struct stat statusOf(const std::string& path) {
  struct stat status = {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

void setTimes(const std::string& path, time_t access, time_t modification) {
  const struct timespec times[2] = {{access, 123456789}, {modification, 987654321}};
  EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

void setAttribute(const std::string& path, const char* name, const std::string& value) {
  EXPECT_EQ(::lsetxattr(path.c_str(), name, value.data(), value.size(), 0), 0) << path << name;
}

std::string attribute(const std::string& path, const char* name) {
  char value[256] = {};
  const ssize_t size = ::lgetxattr(path.c_str(), name, value, sizeof value);
  return size < 0 ? "<none>" : std::string(value, static_cast<std::size_t>(size));
}

std::string accessList(std::uint16_t mask) {
  std::string list("\x02\x00\x00\x00", 4);
  const auto add = [&](std::uint16_t tag, std::uint16_t permissions, std::uint32_t id) {
    list.append(reinterpret_cast<const char*>(&tag), 2);
    list.append(reinterpret_cast<const char*>(&permissions), 2);
    list.append(reinterpret_cast<const char*>(&id), 4);
  };
  add(0x01, 6, 0xFFFFFFFF);
  add(0x02, 7, 4321);
  add(0x04, 0, 0xFFFFFFFF);
  add(0x10, mask, 0xFFFFFFFF);
  add(0x20, 4, 0xFFFFFFFF);
  return list;
}

std::string capability() {
  return {"\x01\x00\x00\x02\x00\x04\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00", 20};
}

void makeSocket(const std::string& path) {
  struct sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(::bind(socket, reinterpret_cast<struct sockaddr*>(&address), sizeof address), 0);
  ::close(socket);
}

}  // namespace halyard::test
