// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/loop_volume.h"

#include <sys/mount.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace halyard::test {

std::string outputOf(const std::string& command) {
  std::FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
  if (pipe == nullptr) return {};
  std::string text;
  std::array<char, 512> buffer{};
  while (const std::size_t length = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
    text.append(buffer.data(), length);
  }
  if (::pclose(pipe) != 0) return {};
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

LoopVolume::LoopVolume(const Scratch& scratch, const std::string& kind, const std::string& label)
    : kind_(kind), uuid_(outputOf("cat /proc/sys/kernel/random/uuid")) {
  const std::string image = scratch / (label + ".img");
  const std::string make = "truncate -s 128M '" + image + "' && mkfs." + kind + " -q -L '" + label +
                           "' -U " + uuid_ + " '" + image + "' >/dev/null 2>&1";
  if (std::system(make.c_str()) != 0) return;
  device_ = outputOf("losetup -f --show '" + image + "'");
  ready_ = !device_.empty();
}

LoopVolume::~LoopVolume() {
  if (device_.empty()) return;
  if (std::system(("losetup -d " + device_).c_str()) != 0) {
    std::fprintf(stderr, "could not detach %s\n", device_.c_str());
  }
}

bool LoopVolume::mountAt(const std::string& folder, const std::string& options) const {
  return ::mount(device_.c_str(), folder.c_str(), kind_.c_str(), 0, options.c_str()) == 0;
}

}  // namespace halyard::test
