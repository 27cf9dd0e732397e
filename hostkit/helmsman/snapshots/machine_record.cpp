#include "helmsman/snapshots/machine_record.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/question.h"
#include "common/safe_folder.h"
#include "helmsman/snapshots/repository.h"
#include "host/files/files.h"
#include "product/computer_name.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kIdentifierLength = 32;
constexpr std::size_t kRecordLimit = 64;
constexpr mode_t kRecordMode = 0640;
constexpr mode_t kRepositoryMode = 0775;
constexpr mode_t kHostFolderMode = 0750;

// The identifier in a text of one line; empty for anything else.
std::string identifierIn(std::string_view text) {
  text = trimLineFeeds(text);
  const bool isPlain = text.size() == kIdentifierLength &&
                       text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
  return isPlain ? std::string(text) : std::string();
}

std::string repositoryAt(const std::string& destination) {
  return joinPath(host::realPath(destination).value_or(destination), paths::kRepositoryName);
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
    const std::string folder = joinPath(repository, name);
    if (recordedIn(folder) == machine) return folder;
  }
  return {};
}

}  // namespace

std::string machineIdentifier() {
  return identifierIn(host::readFile("/etc/machine-id", kRecordLimit).value_or(""));
}

std::string folderRefusal(const std::string& destination) {
  const std::string machine = machineIdentifier();
  if (machine.empty()) return {};
  const std::string repository = repositoryAt(destination);
  const std::string folder = joinPath(repository, computerName());
  if (const auto recorded = recordedIn(folder)) {
    if (equalsIgnoringCase(*recorded, machine)) return {};
    return folder +
           " holds the snapshots of another machine: one of the same name, or the one "
           "that this one was cloned from or replaces (run, when they are this host's: "
           "helmsman destination --adopt)";
  }
  if (!snapshotsIn(folder).empty()) return {};  // Taken before machines were recorded.
  const std::string other = folderElsewhere(repository, machine);
  if (other.empty()) return {};
  return "this machine's snapshots are in " + other + ", and its name is " + computerName() +
         " now: it was renamed, or cloned (run, to go on with them: mv " + other + " " + folder +
         "; to begin anew: helmsman destination --adopt)";
}

std::string adoptFolder(const std::string& destination) {
  const std::string machine = machineIdentifier();
  if (machine.empty()) return "this machine has no identifier in /etc/machine-id";
  const std::string repository = repositoryAt(destination);
  const std::string path = joinPath(repository, computerName());
  if (::mkdir(repository.c_str(), kRepositoryMode) == 0) {
    (void)::chmod(repository.c_str(), kRepositoryMode);  // The umask may have taken bits away.
  }
  (void)::mkdir(path.c_str(), kHostFolderMode);  // What cannot be made cannot be opened either.
  const Result<host::Descriptor> folder = openFolderSafely(path);
  const Status written = folder
                             ? host::writeFileAt(folder->get(), kMachineRecordName, machine + "\n",
                                                 host::Durability::power, kRecordMode)
                             : folder.error();
  if (!written) {
    return path + ": " + errnoText(written.error().code);
  }
  return {};
}

std::string askToAdopt(const std::string& destination, const std::string& refusal) {
  printWarning(refusal);
  if (!confirmed("Take " + snapshotFolder(destination) + " for this host's folder?")) {
    return "the folder of the snapshots was not taken for this host's";
  }
  return adoptFolder(destination);
}

int adoptDestination() {
  std::string problem;
  const auto destination = backupDestination(problem);
  if (destination) problem = adoptFolder(*destination);
  if (!problem.empty()) {
    printError(problem);
    return kFailure;
  }
  printNote(snapshotFolder(*destination) + " is this host's now");
  return kSuccess;
}

}  // namespace halyard::hostkit
