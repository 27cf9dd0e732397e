// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/mounts.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace halyard::test {

namespace {

bool runs(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

}  // namespace

TestMount TestMount::memory(const std::string& folder, const std::string& options) {
  std::filesystem::create_directories(folder);
  const bool done = ::mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
  return TestMount(done ? folder : "");
}

TestMount TestMount::image(const std::string& folder, const std::string& kind, int mebibytes) {
  const std::string file = folder + ".img";
  std::filesystem::create_directories(folder);
  const bool done = ::geteuid() == 0 &&
                    runs("truncate -s " + std::to_string(mebibytes) + "M '" + file + "'") &&
                    runs("mkfs." + kind + " -q '" + file + "'") &&
                    runs("mount -o loop '" + file + "' '" + folder + "'");
  return TestMount(done ? folder : "");
}

TestMount TestMount::bind(const std::string& folder, const std::string& original) {
  std::filesystem::create_directories(folder);
  const bool done = ::mount(original.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr) == 0;
  return TestMount(done ? folder : "");
}

TestMount::TestMount(TestMount&& other) noexcept : folder_(std::move(other.folder_)) {
  other.folder_.clear();
}

TestMount::~TestMount() {
  // Detached rather than left: the scratch folder is removed next.
  if (isMounted()) ::umount2(folder_.c_str(), MNT_DETACH);
}

void TestMount::makeReadOnly() const {
  EXPECT_EQ(::mount(nullptr, folder_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
}

}  // namespace halyard::test
