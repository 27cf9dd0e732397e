// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/scratch.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace halyard::test {

Scratch::Scratch() {
  const char* base = std::getenv("TMPDIR");
  path_ = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/halyard-test-XXXXXX";
  if (::mkdtemp(path_.data()) == nullptr) {
    ADD_FAILURE() << "no scratch folder at " << path_;
    std::abort();  // A test must never work in a folder that is not its own.
  }
}

Scratch::~Scratch() {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  if (info != nullptr && info->result()->Failed()) {
    std::fprintf(stderr, "kept for a look: %s\n", path_.c_str());
    return;
  }
  // rm, not the library under test nor std::filesystem, which gives up on very deep trees.
  const std::string command = "rm -rf --one-file-system '" + path_ + "'";
  if (std::system(command.c_str()) != 0) {
    std::fprintf(stderr, "could not remove %s\n", path_.c_str());
  }
}

std::string Scratch::write(const std::string& name, const std::string& bytes) const {
  const std::filesystem::path path = *this / name;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file << bytes;
  file.close();
  EXPECT_TRUE(file.good()) << path;
  return path;
}

std::string Scratch::makeFolder(const std::string& name) const {
  const std::string path = *this / name;
  std::filesystem::create_directories(path);
  return path;
}

std::string Scratch::contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return "<missing>";
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool Scratch::stands(const std::string& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0;
}

}  // namespace halyard::test
