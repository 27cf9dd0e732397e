// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "host_kit_root.h"

#include <fcntl.h>

#include <filesystem>

#include "support/build_paths.h"

namespace halyard::test {
namespace fs = std::filesystem;

host::Descriptor holdBackupLock(const PrivateRoot& root) {
  const std::string lock = "/run/halyard/backup.lock";
  root.writeFile(lock, "", 0600);
  host::Descriptor file(::open(root.path(lock).c_str(), O_RDWR | O_CLOEXEC));
  struct flock whole {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  EXPECT_EQ(::fcntl(file.get(), F_OFD_SETLK, &whole), 0);
  return file;
}

void HostKitTest::SetUp() {
  PrivateRootTest::SetUp();
  if (IsSkipped()) return;
  install("drivectl", root);
  install("helmsman", root);
}

void HostKitTest::install(const std::string& program, const PrivateRoot& root) {
  const std::string built = test::buildFolder() + "/" + program;
  if (!fs::exists(built)) return;  // Running it fails the test, and says so.
  const std::string target = root.path("/usr/sbin/" + program);
  fs::remove(target);
  fs::create_hard_link(built, target);
}

CommandResult HostKitTest::helmsman(const std::vector<std::string>& words,
                                    const Environment& environment) const {
  RunOptions options;
  options.argv0 = "helmsman";
  return root.runProgram("/usr/sbin/helmsman", words, environment, options);
}

CommandResult HostKitTest::helmsmanAnswered(const std::vector<std::string>& words,
                                            const std::string& typed) const {
  RunOptions options;
  options.argv0 = "helmsman";
  options.typed = typed;
  return root.runProgram("/usr/sbin/helmsman", words, {}, options);
}

CommandResult HostKitTest::drivectl(const std::vector<std::string>& words) const {
  RunOptions options;
  options.argv0 = "drivectl";
  return root.runProgram("/usr/sbin/drivectl", words, {}, options);
}

void HostKitTest::installEngine() const {
  install("snapwheel", root);
  root.makeFolder("/backup");
  root.makeFolder("/run");
  root.writeEnginePreferences(1, "/backup");
  root.writeFile("/etc/halyard-host/snapwheel.exclude", "");
}

CommandResult HostKitTest::snapwheel(const std::vector<std::string>& words) const {
  return refused("snapwheel", words);  // Its exceptions need the memory map in any case.
}

CommandResult HostKitTest::refused(const std::string& program,
                                   const std::vector<std::string>& words) const {
  RunOptions options;
  options.argv0 = program;
  options.mayThrow = true;
  return root.runProgram("/usr/sbin/" + program, words, {}, options);
}

nlohmann::json HostKitTest::helmsmanJson(const std::vector<std::string>& words) const {
  const CommandResult result = helmsman(words);
  const nlohmann::json document = nlohmann::json::parse(result.out, nullptr, false);
  EXPECT_FALSE(document.is_discarded()) << result.out << result.err;
  return document;
}

void HostKitTest::forgetSetup() const {
  for (const char* path : {"/private", "/Library", "/System"}) root.remove(path);
}

}  // namespace halyard::test
