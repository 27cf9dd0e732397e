// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// File systems of a test's own.
#pragma once

#include <string>
#include <utility>

namespace halyard::test {

/// A file system mounted on a folder for as long as the object lives. A test that finds it not
/// mounted (no root, no loop devices, no such file system here) skips itself.
class TestMount {
 public:
  /// An empty file system in memory; options as of mount(8), such as "size=64k" or "nr_inodes=20".
  static TestMount memory(const std::string& folder, const std::string& options);
  /// A new file system of a kind ("ext4", "btrfs", "xfs") in an image file beside the folder.
  static TestMount image(const std::string& folder, const std::string& kind, int mebibytes);
  /// A folder a second time at another place.
  static TestMount bind(const std::string& folder, const std::string& original);

  TestMount(TestMount&& other) noexcept;
  TestMount& operator=(TestMount&&) = delete;
  ~TestMount();

  bool isMounted() const { return !folder_.empty(); }
  void makeReadOnly() const;

 private:
  explicit TestMount(std::string folder) : folder_(std::move(folder)) {}
  std::string folder_;
};

}  // namespace halyard::test
