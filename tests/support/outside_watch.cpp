// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/outside_watch.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstring>

namespace halyard::test {

namespace {

struct Kind {
  std::uint32_t mask;
  const char* word;
};
constexpr std::array<Kind, 8> kKinds = {{{IN_OPEN, "opened "},
                                         {IN_ACCESS, "read "},
                                         {IN_MODIFY, "changed "},
                                         {IN_ATTRIB, "changed attributes of "},
                                         {IN_CREATE, "made "},
                                         {IN_DELETE | IN_DELETE_SELF, "removed "},
                                         {IN_MOVE | IN_MOVE_SELF, "moved "},
                                         {IN_Q_OVERFLOW, "much, and in the end "}}};

}  // namespace

OutsideWatch::OutsideWatch(const std::vector<std::string>& folders)
    : events_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  std::uint32_t all = 0;
  for (const Kind& kind : kKinds) all |= kind.mask;
  for (const std::string& folder : folders) {
    EXPECT_GE(
        ::inotify_add_watch(events_.get(), folder.c_str(), all & ~std::uint32_t{IN_Q_OVERFLOW}), 0)
        << folder;
  }
}

std::vector<std::string> OutsideWatch::takeEvents() {
  std::vector<std::string> found;
  alignas(inotify_event) std::array<char, 16384> room;
  for (;;) {
    const ssize_t length = ::read(events_.get(), room.data(), room.size());
    if (length <= 0) return found;
    for (ssize_t at = 0; at < length;) {
      inotify_event event{};
      std::memcpy(&event, room.data() + at, sizeof event);
      const std::string name = event.len == 0 ? "the folder" : room.data() + at + sizeof event;
      for (const Kind& kind : kKinds) {
        if ((event.mask & kind.mask) != 0) found.push_back(kind.word + name);
      }
      at += static_cast<ssize_t>(sizeof event + event.len);
    }
  }
}

}  // namespace halyard::test
