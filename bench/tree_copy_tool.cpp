// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// Runs one operation on a tree, for bench/tree_copy_bench to time: make, copy, link or remove.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "host/files/files.h"
#include "host/tree/move_item.h"
#include "host/tree/tree_copy.h"

namespace {

/// Files of 1 to 8 KiB, spread evenly over the folders; the same bytes in every run.
bool makeTree(const std::string& root, int files, int folders) {
  std::string bytes(8192, '\0');
  std::uint32_t state = 1;
  if (!halyard::host::createDirectory(root)) return false;
  for (int folder = 0; folder < folders; ++folder) {
    const std::string path = root + "/folder-" + std::to_string(folder);
    if (!halyard::host::createDirectory(path)) return false;
    for (int file = folder; file < files; file += folders) {
      state = state * 1664525U + 1013904223U;
      const std::size_t size = 1024 + state % 7169;
      std::memcpy(bytes.data(), &state, sizeof state);
      const std::string name = path + "/file-" + std::to_string(file) + ".txt";
      const int made = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
      if (made < 0) return false;
      const bool written = ::write(made, bytes.data(), size) == static_cast<ssize_t>(size);
      ::close(made);
      if (!written) return false;
    }
  }
  return true;
}

int usage() {
  std::fputs(
      "usage: tree_copy_tool make ROOT FILES FOLDERS\n"
      "       tree_copy_tool copy SOURCE DESTINATION\n"
      "       tree_copy_tool link SOURCE DESTINATION REFERENCE\n"
      "       tree_copy_tool remove PATH\n"
      "Prints the seconds that the operation took and the peak memory in KiB.\n",
      stderr);
  return 2;
}

bool run(int count, char** words) {
  const std::string operation = words[1];
  if (operation == "make" && count == 5) {
    return makeTree(words[2], std::atoi(words[3]), std::atoi(words[4]));  // NOLINT(cert-err34-c)
  }
  if (operation == "copy" && count == 4) return halyard::host::copyItem(words[2], words[3]);
  if (operation == "link" && count == 5) {
    halyard::host::TreeCopyOptions options;
    options.reference = words[4];
    return halyard::host::copyTree(words[2], words[3], options).complete;
  }
  if (operation == "remove" && count == 3) return halyard::host::removeItem(words[2]);
  std::exit(usage());
}

}  // namespace

int main(int count, char** words) {
  if (count < 3) return usage();
  const auto start = std::chrono::steady_clock::now();
  const bool done = run(count, words);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  struct rusage used = {};
  ::getrusage(RUSAGE_SELF, &used);
  std::printf("%.3f %ld\n", seconds.count(), used.ru_maxrss);
  if (!done) std::fputs("tree_copy_tool: failed\n", stderr);
  return done ? 0 : 1;
}
