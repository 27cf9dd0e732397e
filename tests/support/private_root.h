// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

// A folder that the built program is chrooted into, for tests of whole commands.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace halyard::test {

/// What a command left behind.
struct CommandResult {
  int status = -1;  ///< Exit status; 128 + signal number when a signal ended it.
  std::string
      out;  ///< Standard output, bytes as they came; empty when it was closed or redirected.
  std::string err;  ///< Standard error, the same way.
};

using Environment = std::map<std::string, std::string>;

struct RunOptions {
  std::set<int> closedDescriptors{};  ///< Of 0, 1 and 2: closed when the command starts.
  std::string stdoutFile{};           ///< A path of the host ("/dev/full") for standard output.
  bool stdoutPipeIsBroken = false;    ///< Standard output is a pipe that nobody reads.
  std::string typed{};  ///< Standard input is a terminal on which this was typed, else /dev/null.
  std::string argv0 = "Halyard";    ///< Word 0 of the command line.
  std::string workingFolder = "/";  ///< Inside the root.
  mode_t umask = 022;               ///< Of the command.
  bool keepDescendants = false;     ///< Do not end what the command left running.
  bool mayThrow = false;            ///< The program uses exceptions: it sees its memory map.
  int timeoutSeconds = 60;          ///< The command is killed, and the test fails, after it.
  std::string traceFile{};  ///< Of the host: strace(1) records there what changes or syncs files.
};

/// The text of a service descriptor. Keys keep the order in which they are set; setting one again
/// replaces it.
class DescriptorText {
 public:
  DescriptorText& text(const std::string& key, std::string_view value);
  DescriptorText& list(const std::string& key, const std::vector<std::string>& values);
  /// A dictionary of texts, as BackupActions and RestoreActions are.
  DescriptorText& dictionary(const std::string& key,
                             const std::vector<std::pair<std::string, std::string>>& entries);
  /// Any XML for the value, for values of a wrong type.
  DescriptorText& raw(const std::string& key, const std::string& xml);
  DescriptorText& without(const std::string& key);
  std::string plist() const;

 private:
  std::vector<std::pair<std::string, std::string>> entries_;
};

/// A usual descriptor: the one plug-in backs up, restores and verifies; logs are
/// /private/var/log/halyard/<name>.log; no actions, no command lines, no files.
DescriptorText descriptorOf(const std::string& serviceName, const std::string& plugin);

/// The document form of one property-list value given as XML.
std::string plistDocument(const std::string& xml);

/// A fresh root with a host that is ready: see tools/private-root for what is in it.
///
/// The folder lies in the build folder. It is removed at the end, or left in place, and named, when
/// the test failed. All paths that the operations take are absolute paths inside the root; parent
/// folders are made as needed, and a file is always made anew, never written through a hard link.
/// An operation that fails stops the test program.
class PrivateRoot {
 public:
  PrivateRoot();
  ~PrivateRoot();
  PrivateRoot(const PrivateRoot&) = delete;
  PrivateRoot& operator=(const PrivateRoot&) = delete;

  /// Empty when roots can be entered here, else a sentence that says why not.
  static std::string whyUnavailable();

  /// The path as the host sees it.
  std::string path(std::string_view inside) const;

  void writeFile(std::string_view inside, std::string_view content, mode_t mode = 0644) const;
  /// The content, or "<missing>" when there is no readable file. A link leads where it would lead
  /// in the root, never to a file of the host.
  std::string readFile(std::string_view inside) const;
  /// Does not follow a symbolic link.
  bool exists(std::string_view inside) const;
  bool isFolder(std::string_view inside) const;
  /// Permission bits of the item itself, as in 0644.
  mode_t modeOf(std::string_view inside) const;
  void makeFolder(std::string_view inside, mode_t mode = 0755) const;
  void makeLink(std::string_view inside, std::string_view target) const;
  /// The whole tree; missing is fine.
  void remove(std::string_view inside) const;
  /// Names in the folder, ascending; empty when it is missing.
  std::vector<std::string> list(std::string_view inside) const;

  /// An executable sh script with the given body.
  void writeScript(std::string_view inside, std::string_view body) const;
  /// The same, and it first records its call for calls().
  void writePlugin(std::string_view inside, std::string_view body = "") const;
  /// What the plug-ins were called with so far, oldest first: path and arguments joined by "|".
  std::vector<std::string> calls() const;

  /// /private/etc/halyard/<fileName>.
  void writeDescriptor(const std::string& fileName, const DescriptorText& descriptor) const;
  /// The enable values of "services", in this order.
  void writePreferences(const std::vector<std::pair<std::string, int>>& services) const;
  void writeEnginePreferences(int autoBackup, std::string_view backupAlias) const;
  /// What the stand-in drivectl reports as VolumeUUID of "/".
  void setVolumeIdentifier(std::string_view identifier) const;
  /// The progress log's lines without the date lines.
  std::vector<std::string> progressMessages() const;

  /// Runs /usr/sbin/Halyard with these words in exactly this environment and PATH. A sanitizer's
  /// report or an overrun time limit fails the test.
  CommandResult run(const std::vector<std::string>& words, const Environment& environment = {},
                    const RunOptions& options = {}) const;
  /// The same for any program of the root.
  CommandResult runProgram(const std::string& program, const std::vector<std::string>& words,
                           const Environment& environment = {},
                           const RunOptions& options = {}) const;

 private:
  std::string folder_;
};

/// The fixture of the command tests: skips them where no root can be entered. A suite takes the
/// name of its command: `using Version = PrivateRootTest;` and then `TEST_F(Version,
/// PrintsTheLine)`.
class PrivateRootTest : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string reason = PrivateRoot::whyUnavailable(); !reason.empty())
      GTEST_SKIP() << reason;
  }
  PrivateRoot root;
};

/// The lines of a text, without their ends; a last line without an end counts.
std::vector<std::string> linesOf(std::string_view text);

}  // namespace halyard::test
