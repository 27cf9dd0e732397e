// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A folder in memory for what is read by its path.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "expect.h"

namespace halyard::fuzz {

class ScratchFolder {
 public:
  ScratchFolder() {
    const char* base = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    path_ = std::string(base) + "/halyard-fuzz-XXXXXX";
    expect(::mkdtemp(path_.data()) != nullptr, "there is room for a folder");
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return path_; }
  void makeFolder(const std::string& name) const {
    std::filesystem::create_directories(path_ + "/" + name);
  }
  /// Answers with the file's path.
  std::string write(const std::string& name, std::string_view bytes) const {
    std::string path = path_ + "/" + name;
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    (void)::close(file);
    expect(written == static_cast<ssize_t>(bytes.size()), "there is room for the file");
    return path;
  }

 private:
  std::string path_;
};

}  // namespace halyard::fuzz
