// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/root_template.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string_view>
#include <vector>

#include "support/build_paths.h"

namespace halyard::test {
namespace fs = std::filesystem;
namespace {

[[noreturn]] void stop(const std::string& what) {
  std::cerr << "private root: " << what << ": " << strerror(errno) << '\n';
  std::abort();
}

std::string layOutTool() { return sourceFolder() + "/tools/private-root"; }

// The programs that a test may add to its root.
std::vector<std::string> addedPrograms() {
  std::vector<std::string> programs;
  for (const char* name : {"drivectl", "helmsman", "snapwheel"}) {
    const std::string program = buildFolder() + "/" + name;
    if (access(program.c_str(), X_OK) == 0) programs.push_back(program);
  }
  return programs;
}

// Named after the state of the tool and of the programs, so that a new build makes a new one.
std::string templateName() {
  std::vector<std::string> files = {layOutTool(), builtProgram()};
  for (std::string& program : addedPrograms()) files.push_back(std::move(program));
  std::string name = "template";
  for (const std::string& file : files) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0) stop("nothing at " + file);
    name += "-" + std::to_string(status.st_ino) + "." + std::to_string(status.st_mtim.tv_sec) +
            "." + std::to_string(status.st_mtim.tv_nsec);
  }
  return name;
}

// Every rebuild leaves a template behind; the first test after it clears them away.
void removeStaleTemplates(const fs::path& current) {
  for (const auto& entry : fs::directory_iterator(current.parent_path())) {
    const std::string other = entry.path().filename().string();
    std::error_code ignored;  // Another test program may be removing the same one.
    if (other.starts_with("template-") && other != current.filename())
      fs::remove_all(entry, ignored);
  }
}

// The layout itself lives in one place, the tool.
void layOut(const std::string& folder) {
  std::vector<std::string> words = {layOutTool(), "create", folder, "--program", builtProgram()};
  for (const std::string& program : addedPrograms()) {
    words.insert(words.end(), {"--libraries-of", program});
  }
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  const pid_t child = fork();
  if (child < 0) stop("fork");
  if (child == 0) {
    execv(pointers.front(), pointers.data());
    _exit(127);
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (status != 0) stop(words.front() + " failed for " + folder);
}

void makeTemplate(const fs::path& path) {
  removeStaleTemplates(path);
  std::string work = path.parent_path() / "making-XXXXXX";
  if (mkdtemp(work.data()) == nullptr) stop("no folder " + work);
  layOut(work);
  // Another test program may have finished the same one meanwhile; theirs is as good.
  if (rename(work.c_str(), path.c_str()) != 0) fs::remove_all(work);
}

// The whole name of an item below the template, as in "/usr/bin/sh", says whether roots share it.
bool isShared(std::string_view inside) {
  return inside.starts_with("/usr/") || inside.starts_with("/dev/");
}

}  // namespace

void makeRoot(const std::string& folder) {
  const fs::path shared = fs::path(folder).parent_path() / templateName();
  if (!fs::exists(shared)) makeTemplate(shared);
  const std::size_t above = shared.native().size();
  for (const auto& entry : fs::recursive_directory_iterator(shared)) {
    const std::string inside = entry.path().native().substr(above);
    const std::string target = folder + inside;
    if (entry.is_symlink()) {
      fs::copy_symlink(entry, target);
    } else if (entry.is_directory()) {
      fs::create_directory(target);
      fs::permissions(target, entry.status().permissions());  // Whatever the umask is.
    } else if (isShared(inside)) {
      fs::create_hard_link(entry, target);
    } else {
      fs::copy_file(entry, target);
    }
  }
  fs::permissions(folder, fs::status(shared).permissions());
}

}  // namespace halyard::test
