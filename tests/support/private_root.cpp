// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "support/private_root.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "support/build_paths.h"
#include "support/coverage.h"
#include "support/root_process.h"
#include "support/root_template.h"

namespace halyard::test {
namespace fs = std::filesystem;
namespace {

constexpr int kSanitizerReport = 86;  // As tools/private-root tells the sanitizers.
constexpr const char* kCallsFile = "/plugin-calls";

[[noreturn]] void stop(const std::string& what) {
  std::cerr << "private root: " << what << ": " << strerror(errno) << '\n';
  std::abort();
}

int waitFor(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128;
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const char letter : text) {
    if (letter == '&') {
      result += "&amp;";
    } else if (letter == '<') {
      result += "&lt;";
    } else if (letter == '>') {
      result += "&gt;";
    } else {
      result += letter;
    }
  }
  return result;
}

std::string stringElement(std::string_view text) {
  return "<string>" + escaped(text) + "</string>";
}

// Without a memory map the address sanitizer says so, in three lines, when the program ends its
// process below main(). That says nothing about the program.
void removeMapNotice(std::string& text) {
  constexpr std::string_view kStart = "WARNING: ASan is ignoring requested __asan_handle_no_return";
  constexpr std::string_view kEnd = "issues/189\n";
  const std::size_t start = text.find(kStart);
  const std::size_t end = text.find(kEnd, start);
  if (start == std::string::npos || end == std::string::npos) return;
  const std::size_t line = start < 2 ? 0 : text.rfind("==", start - 3);  // "==<process>=="
  text.erase(line, end + kEnd.size() - line);
}

std::string keyElement(std::string_view key) { return "<key>" + escaped(key) + "</key>"; }

}  // namespace

std::string plistDocument(const std::string& xml) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n" + xml +
         "\n</plist>\n";
}

DescriptorText& DescriptorText::raw(const std::string& key, const std::string& xml) {
  for (auto& [known, value] : entries_) {
    if (known == key) {
      value = xml;
      return *this;
    }
  }
  entries_.emplace_back(key, xml);
  return *this;
}

DescriptorText& DescriptorText::text(const std::string& key, std::string_view value) {
  return raw(key, stringElement(value));
}

DescriptorText& DescriptorText::list(const std::string& key,
                                     const std::vector<std::string>& values) {
  std::string xml = "<array>";
  for (const std::string& value : values) xml += stringElement(value);
  return raw(key, xml + "</array>");
}

DescriptorText& DescriptorText::dictionary(
    const std::string& key, const std::vector<std::pair<std::string, std::string>>& entries) {
  std::string xml = "<dict>";
  for (const auto& [name, value] : entries) xml += keyElement(name) + stringElement(value);
  return raw(key, xml + "</dict>");
}

DescriptorText& DescriptorText::without(const std::string& key) {
  std::erase_if(entries_, [&key](const auto& entry) { return entry.first == key; });
  return *this;
}

std::string DescriptorText::plist() const {
  std::string xml = "<dict>\n";
  for (const auto& [key, value] : entries_) xml += keyElement(key) + value + "\n";
  return plistDocument(xml + "</dict>");
}

DescriptorText descriptorOf(const std::string& serviceName, const std::string& plugin) {
  const std::string log = "/private/var/log/halyard/" + serviceName + ".log";
  DescriptorText descriptor;
  descriptor.text("ServiceName", serviceName);
  for (const char* task : {"Backup", "Restore", "Verify"}) {
    descriptor.text(std::string(task) + "BinaryPath", plugin).text(std::string(task) + "Log", log);
  }
  return descriptor;
}

PrivateRoot::PrivateRoot() {
  if (!whyUnavailable().empty()) return;
  const std::string roots = buildFolder() + "/private-roots";
  fs::create_directories(roots);
  folder_ = roots + "/root-XXXXXX";
  if (mkdtemp(folder_.data()) == nullptr) stop("no folder " + folder_);
  makeRoot(folder_);
  shareCounters(folder_);
}

PrivateRoot::~PrivateRoot() {
  if (folder_.empty()) return;
  if (testing::Test::HasFailure()) {
    std::cerr << "The private root is left at " << folder_ << '\n';
    return;
  }
  std::error_code ignored;  // A leftover in the build folder is harmless.
  fs::remove_all(folder_, ignored);
}

std::string PrivateRoot::whyUnavailable() {
  static const std::string reason = [] {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    const pid_t child = fork();
    if (child < 0) stop("fork");
    // Devices are bound over those of the folder itself, so the host's own root serves for the
    // trial.
    if (child == 0) _exit(enterRoot("/", user, group) ? 0 : 1);
    return std::string(
        waitFor(child) == 0 ? "" : "chroot(2) needs root or a user namespace, and here is neither");
  }();
  return reason;
}

std::string PrivateRoot::path(std::string_view inside) const {
  return folder_ + std::string(inside);
}

void PrivateRoot::writeFile(std::string_view inside, std::string_view content, mode_t mode) const {
  const std::string file = path(inside);
  fs::create_directories(fs::path(file).parent_path());
  // A new file in any case: the old one may be a hard link that other roots share.
  if (unlink(file.c_str()) != 0 && errno != ENOENT) stop("cannot replace " + file);
  const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (descriptor < 0) stop("cannot make " + file);
  std::string_view rest = content;
  while (!rest.empty()) {
    const ssize_t count = write(descriptor, rest.data(), rest.size());
    if (count < 0) stop("cannot write " + file);
    rest.remove_prefix(static_cast<std::size_t>(count));
  }
  if (fchmod(descriptor, mode) != 0) stop("cannot set the mode of " + file);
  close(descriptor);
}

std::string PrivateRoot::readFile(std::string_view inside) const {
  const int top = open(folder_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (top < 0) stop("cannot open " + folder_);
  open_how how{};
  how.flags = O_RDONLY | O_CLOEXEC;
  how.resolve = RESOLVE_IN_ROOT;
  const auto file =
      static_cast<int>(syscall(SYS_openat2, top, std::string(inside).c_str(), &how, sizeof how));
  close(top);
  if (file < 0) return "<missing>";
  std::ifstream stream("/proc/self/fd/" + std::to_string(file), std::ios::binary);
  struct stat status {};
  const bool readable = stream && fstat(file, &status) == 0 && !S_ISDIR(status.st_mode);
  close(file);
  if (!readable) return "<missing>";
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

bool PrivateRoot::exists(std::string_view inside) const {
  struct stat status {};
  return lstat(path(inside).c_str(), &status) == 0;
}

bool PrivateRoot::isFolder(std::string_view inside) const {
  struct stat status {};
  return lstat(path(inside).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

mode_t PrivateRoot::modeOf(std::string_view inside) const {
  struct stat status {};
  if (lstat(path(inside).c_str(), &status) != 0) stop("nothing at " + path(inside));
  return status.st_mode & 07777;
}

void PrivateRoot::makeFolder(std::string_view inside, mode_t mode) const {
  fs::create_directories(path(inside));
  if (chmod(path(inside).c_str(), mode) != 0) stop("cannot set the mode of " + path(inside));
}

void PrivateRoot::makeLink(std::string_view inside, std::string_view target) const {
  fs::create_directories(fs::path(path(inside)).parent_path());
  if (symlink(std::string(target).c_str(), path(inside).c_str()) != 0)
    stop("cannot link " + path(inside));
}

void PrivateRoot::remove(std::string_view inside) const { fs::remove_all(path(inside)); }

std::vector<std::string> PrivateRoot::list(std::string_view inside) const {
  std::vector<std::string> names;
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(path(inside), missing)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

void PrivateRoot::writeScript(std::string_view inside, std::string_view body) const {
  writeFile(inside, "#!/bin/sh\n" + std::string(body) + "\n", 0755);
}

void PrivateRoot::writePlugin(std::string_view inside, std::string_view body) const {
  const std::string record =
      "{ printf '%s' \"$0\"; for word in \"$@\"; do printf '|%s' \"$word\"; done; echo; } >>" +
      std::string(kCallsFile) + "\n";
  writeScript(inside, record + std::string(body));
}

std::vector<std::string> PrivateRoot::calls() const {
  return exists(kCallsFile) ? linesOf(readFile(kCallsFile)) : std::vector<std::string>{};
}

void PrivateRoot::writeDescriptor(const std::string& fileName,
                                  const DescriptorText& descriptor) const {
  writeFile("/private/etc/halyard/" + fileName, descriptor.plist());
}

void PrivateRoot::writePreferences(const std::vector<std::pair<std::string, int>>& services) const {
  std::string xml = "<dict><key>services</key><dict>";
  for (const auto& [name, value] : services) {
    xml += keyElement(name) + "<integer>" + std::to_string(value) + "</integer>";
  }
  writeFile("/private/etc/halyard/com.vantor.Halyard.plist", plistDocument(xml + "</dict></dict>"));
}

void PrivateRoot::writeEnginePreferences(int autoBackup, std::string_view backupAlias) const {
  const std::string xml = "<dict><key>AutoBackup</key><integer>" + std::to_string(autoBackup) +
                          "</integer><key>BackupAlias</key>" + stringElement(backupAlias) +
                          "</dict>";
  writeFile("/Library/Preferences/com.vantor.Snapwheel.plist", plistDocument(xml));
}

void PrivateRoot::setVolumeIdentifier(std::string_view identifier) const {
  writeFile("/etc/volume-uuid", std::string(identifier) + "\n");
}

std::vector<std::string> PrivateRoot::progressMessages() const {
  std::vector<std::string> messages;
  for (std::string& line : linesOf(readFile("/private/var/log/halyard/server_progress.log"))) {
    if (line.starts_with("## ")) messages.push_back(std::move(line));
  }
  return messages;
}

CommandResult PrivateRoot::run(const std::vector<std::string>& words,
                               const Environment& environment, const RunOptions& options) const {
  return runProgram("/usr/sbin/Halyard", words, environment, options);
}

CommandResult PrivateRoot::runProgram(const std::string& program,
                                      const std::vector<std::string>& words,
                                      const Environment& environment,
                                      const RunOptions& options) const {
  RootProcess process{
      folder_, program, {options.argv0}, {"PATH=/usr/bin:/bin:/usr/sbin:/sbin"}, options};
  process.words.insert(process.words.end(), words.begin(), words.end());
  for (const auto& [name, value] : environment) process.environment.push_back(name + "=" + value);
  CommandResult result = runInRoot(process);
  removeMapNotice(result.err);
  if (result.status == kSanitizerReport) ADD_FAILURE() << "A sanitizer reports:\n" << result.err;
  return result;
}

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return lines;
}

}  // namespace halyard::test
