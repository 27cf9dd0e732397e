// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A folder for one test's files.
#pragma once

#include <string>

namespace halyard::test {

/// Makes a new folder under TMPDIR (else /tmp). When it goes, the folder goes with it, unless the
/// running test has failed: then it stays and its path is printed.
class Scratch {
 public:
  Scratch();
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  /// The folder, or an item in it.
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

  /// Plain helpers for arranging a test; each fails the test when it cannot do its work, and makes
  /// the folders that lead to the item.
  std::string write(const std::string& name, const std::string& bytes = "") const;
  std::string makeFolder(const std::string& name) const;
  /// The bytes of a file, "<missing>" when there is none.
  static std::string contents(const std::string& path);
  /// Whether anything at all stands there, a dangling link included.
  static bool stands(const std::string& path);

 private:
  std::string path_;
};

}  // namespace halyard::test
