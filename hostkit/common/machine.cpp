// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "common/machine.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <optional>

#include "base/text.h"
#include "common/paths.h"
#include "common/safe_folder.h"
#include "host/files/files.h"
#include "product/computer_name.h"
#include "product/paths.h"
#include "product/snapshot_name.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kIdentifierLength = 32;
constexpr std::size_t kRecordLimit = 64;
constexpr std::string_view kDigits = "0123456789abcdef";

// The identifier in a text of one line; empty for anything else. Identifiers are compared as they
// come from here, and only so.
std::string identifierIn(std::string_view text) {
  std::string identifier(trimLineFeeds(text));
  for (char& letter : identifier) {
    if (letter >= 'A' && letter <= 'F') letter = static_cast<char>(letter - 'A' + 'a');
  }
  const bool isPlain = identifier.size() == kIdentifierLength &&
                       identifier.find_first_not_of(kDigits) == std::string::npos;
  return isPlain ? identifier : std::string();
}

// What is recorded in a host's folder; absent without a record.
std::optional<std::string> recordedIn(const std::string& hostFolder) {
  const Result<host::Descriptor> folder = openFolderSafely(hostFolder);
  if (!folder) return std::nullopt;
  struct stat status {};
  if (::fstatat(folder->get(), kMachineRecordName, &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return std::nullopt;
  }
  return identifierIn(readFileSafely(*folder, kMachineRecordName, kRecordLimit).value_or(""));
}

// Another host's folder that is recorded as this machine's; empty when there is none.
std::string folderElsewhere(const std::string& repository, const std::string& machine) {
  for (const std::string& name : host::listDirectory(repository)) {
    if (name.starts_with('.') || name == computerName()) continue;
    std::string folder = joinPath(repository, name);
    if (recordedIn(folder) == machine) return folder;
  }
  return {};
}

// Taken before machines were recorded.
bool holdsSnapshots(const std::string& folder) {
  return std::ranges::any_of(host::listDirectory(folder), [](const std::string& name) {
    return snapshotInstant(name).has_value();
  });
}

}  // namespace

std::string machineIdentifier() {
  return identifierIn(host::readFile("/etc/machine-id", kRecordLimit).value_or(""));
}

std::string repositoryAt(const std::string& destination) {
  return joinPath(host::realPath(destination).value_or(destination), paths::kRepositoryName);
}

std::string folderRefusal(const std::string& destination) {
  const std::string machine = machineIdentifier();
  const std::string repository = repositoryAt(destination);
  const std::string folder = joinPath(repository, computerName());
  if (const auto recorded = recordedIn(folder)) {
    if (machine.empty()) {
      return folder +
             " is recorded as a machine's, and this one has no identifier in /etc/machine-id that "
             "could show that it is the same (run: systemd-machine-id-setup; then, when the "
             "snapshots are this host's: helmsman destination --adopt)";
    }
    if (*recorded == machine) return {};
    return folder +
           " holds the snapshots of another machine: one of the same name, or the one "
           "that this one was cloned from or replaces (run, when they are this host's: "
           "helmsman destination --adopt)";
  }
  if (machine.empty() || holdsSnapshots(folder)) return {};
  const std::string other = folderElsewhere(repository, machine);
  if (other.empty()) return {};
  return "this machine's snapshots are in " + other + ", and its name is " + computerName() +
         " now: it was renamed, or cloned (run, to go on with them: mv " + shellWord(other) + " " +
         shellWord(folder) + "; to begin anew: helmsman destination --adopt)";
}

std::string shellWord(std::string_view text) {
  constexpr std::string_view kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_@%+=:,./-";
  if (!text.empty() && text.find_first_not_of(kPlain) == std::string_view::npos) {
    return std::string(text);
  }
  std::string word = "'";
  for (const char letter : text) {
    if (letter == '\'') {
      word += "'\\''";
    } else {
      word += letter;
    }
  }
  return word + "'";
}

}  // namespace halyard::hostkit
