// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Items with unusual attributes, and what a test looks at in them.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <string>

namespace halyard::test {

/// Of the item itself; fails the test when there is none.
struct stat statusOf(const std::string& path);

/// Sets access and modification time, each with a part of a second.
void setTimes(const std::string& path, time_t access, time_t modification);

void setAttribute(const std::string& path, const char* name, const std::string& value);
/// The value of an extended attribute, "<none>" when it is missing.
std::string attribute(const std::string& path, const char* name);

/// Values as the kernel keeps them: an access control list with one named user and the given mask,
/// and the capability to bind low ports.
std::string accessList(std::uint16_t mask);
std::string capability();

void makeSocket(const std::string& path);

}  // namespace halyard::test

#define NEEDS_ROOT() \
  if (::geteuid() != 0) GTEST_SKIP() << "needs root"
