// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/lint/descriptor_lint.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>

#include "base/text.h"
#include "helmsman/lint/command_line_lint.h"
#include "helmsman/settings/descriptor_conflicts.h"
#include "helmsman/settings/service_links.h"
#include "host/files/files.h"
#include "product/descriptor_keys.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

namespace {

namespace keys = descriptor_keys;
using Kind = PropertyValue::Kind;

struct KnownKey {
  const char* name;
  Kind kind;
};

constexpr std::array<KnownKey, 14> kKeys = {{{keys::kServiceName, Kind::string},
                                             {keys::kBackupBinaryPath, Kind::string},
                                             {keys::kBackupLog, Kind::string},
                                             {keys::kBackupActions, Kind::dictionary},
                                             {keys::kPreBackupServiceCommands, Kind::array},
                                             {keys::kPostBackupServiceCommands, Kind::array},
                                             {keys::kConfigurationFiles, Kind::array},
                                             {keys::kDataFiles, Kind::array},
                                             {keys::kRestoreBinaryPath, Kind::string},
                                             {keys::kRestoreLog, Kind::string},
                                             {keys::kRestoreActions, Kind::dictionary},
                                             {keys::kVerifyBinaryPath, Kind::string},
                                             {keys::kVerifyLog, Kind::string},
                                             {"Version", Kind::string}}};

const char* kindName(Kind kind) {
  switch (kind) {
    case Kind::dictionary:
      return "a dictionary";
    case Kind::array:
      return "an array";
    case Kind::string:
      return "a string";
    case Kind::integer:
      return "an integer";
    case Kind::real:
      return "a real";
    case Kind::boolean:
      return "a boolean";
    case Kind::date:
      return "a date";
    case Kind::data:
      return "data";
  }
  return "of no kind";
}

void lintKeys(const PropertyDictionary& content, FindingList& list) {
  for (const auto& entryOfList : content) {
    const std::string& key = entryOfList.first;
    const PropertyValue& value = entryOfList.second;
    const auto known = std::find_if(kKeys.begin(), kKeys.end(),
                                    [&key](const KnownKey& one) { return key == one.name; });
    if (known == kKeys.end()) {
      list.warning(key, "is no key that is read", "check the spelling, or remove it");
    } else if (value.kind() != known->kind) {
      list.error(key, std::string("is ") + kindName(value.kind()) + " and reads as absent",
                 std::string("make it ") + kindName(known->kind));
    } else if (const PropertyArray* array = value.asArray()) {
      const bool texts = std::all_of(array->begin(), array->end(),
                                     [](const auto& entry) { return entry.asString() != nullptr; });
      if (!texts) {
        list.error(key, "has entries that are no strings; they are left out", "make them strings");
      }
    }
  }
}

void lintName(const InstalledDescriptor& descriptor, FindingList& list) {
  const std::string name = descriptor.serviceName();
  const std::string& file = descriptor.fileName;
  const auto isDigit = [&file](std::size_t at) { return file[at] >= '0' && file[at] <= '9'; };
  if (file.size() < 4 || !isDigit(0) || !isDigit(1) || file[2] != '-' ||
      !file.ends_with(".plist")) {
    list.warning("", "the file name is not of the form NN-service.plist",
                 "the two digits set the order of the services; rename it");
  }
  if (name.empty()) {
    list.error(keys::kServiceName, "is missing: its backup goes to no folder of its own", "add it");
    return;
  }
  if (name.find('/') != std::string::npos || name.starts_with('.')) {
    list.error(keys::kServiceName, "'" + name + "' is no name for a folder",
               "use letters and digits");
  }
  if (file.find(name) == std::string::npos) {
    list.error(keys::kServiceName,
               "'" + name +
                   "' is not part of the file name, by which restoreService, browse and "
                   "verify find a descriptor",
               "rename the file");
  }
}

void lintExecutable(const PropertyDictionary& content, const char* key, FindingList& list) {
  const auto path = content.text(key);
  if (!path) return;
  if (!path->starts_with('/')) {
    list.error(key, "'" + *path + "' is not absolute, so it is never run",
               "write the path from / on");
  } else if (!host::exists(*path)) {
    list.error(key, *path + " is missing", "install it");
  } else if (!host::isExecutableFile(*path)) {
    list.error(key, *path + " is no executable file", "chmod +x, if it is the program");
  }
}

void lintPrograms(const PropertyDictionary& content, FindingList& list) {
  struct Program {
    const char* key;
    const char* log;
    const char* missing;  // What it means that there is none.
  };
  static constexpr std::array<Program, 3> kPrograms = {
      {{keys::kBackupBinaryPath, keys::kBackupLog, "the service has no program that backs it up"},
       {keys::kRestoreBinaryPath, keys::kRestoreLog, "the service has no program that restores it"},
       {keys::kVerifyBinaryPath, keys::kVerifyLog, "the service cannot be verified"}}};
  for (const Program& program : kPrograms) {
    if (content.find(program.key) == nullptr) {
      list.warning(program.key, std::string("is missing: ") + program.missing, "name one");
      continue;
    }
    lintExecutable(content, program.key, list);
    const auto log = content.text(program.log);
    if (!log) {
      list.warning(program.log,
                   "is missing: the arguments of the program end at \"-log\", without what follows",
                   "name a log file");
    } else if (!host::isDirectory(parentPath(*log))) {
      list.warning(program.log, "the folder " + parentPath(*log) + " is not there", "make it");
    }
  }
  const auto configuration = content.texts(keys::kConfigurationFiles);
  if (configuration && !configuration->empty() && !content.text(keys::kRestoreBinaryPath)) {
    list.error(keys::kConfigurationFiles,
               "a restore only moves them aside; the restore program has to put them back, and "
               "there is none",
               "name a RestoreBinaryPath");
  }
}

// A backup cannot be judged by what the program does not tell.
void lintUnjudged(const PropertyDictionary& content, FindingList& list) {
  const char* const key = keys::kPreBackupServiceCommands;
  for (const std::string& command : content.texts(key).value_or(std::vector<std::string>{})) {
    list.warning(key, "'" + command + "': a failure of it is not told; the backup is called good",
                 "do it in the backup program, whose status counts, or have that check it");
  }
}

void lintFiles(const InstalledDescriptor& descriptor, const std::vector<std::string>& backupFolders,
               FindingList& list) {
  std::vector<std::string> before;
  for (const char* key : {keys::kDataFiles, keys::kConfigurationFiles}) {
    for (const std::string& file :
         descriptor.content.texts(key).value_or(std::vector<std::string>{})) {
      if (!file.starts_with('/')) {
        list.error(key, "'" + file + "' is not absolute and cannot be copied",
                   "write the path from / on");
        continue;
      }
      if (std::find(before.begin(), before.end(), file) != before.end()) {
        list.warning(key, file + " is listed twice; the second copy fails", "list it once");
      }
      const bool heldByOne =
          std::any_of(backupFolders.begin(), backupFolders.end(), [&](const std::string& folder) {
            return host::exists(appendPath(joinPath(folder, descriptor.serviceName()), file));
          });
      before.push_back(file);
      if (heldByOne || folderIsMade(file, before)) continue;
      // Programs that are shipped for every host make folders for what theirs has.
      if (descriptor.content.text(keys::kBackupBinaryPath) && !host::exists(file)) continue;
      const std::string folder = parentPath(file);
      std::string problem = file;
      problem.append(": its folder ").append(folder).append(" is not made in the backup");
      if (descriptor.content.text(keys::kBackupBinaryPath)) {
        list.warning(key, problem,
                     "the backup program has to make it below the folder that follows \"-path\"; a "
                     "backup shows whether it does");
      } else {
        std::string advice = "list the folder ";
        advice.append(folder).append(" itself, or name a backup program that makes it");
        list.error(key, problem, advice);
      }
    }
  }
}

}  // namespace

bool folderIsMade(const std::string& file, const std::vector<std::string>& before) {
  const std::string folder = parentPath(file);
  if (folder == "/") return true;
  for (const std::string& other : before) {
    // A copied folder brings what is in it; a file makes the folders above its own folder.
    if (other != file && (folder == other || folder.starts_with(other + "/"))) return true;
    const std::string above = parentPath(parentPath(other));
    if (folder == above || above.starts_with(folder + "/")) return true;
  }
  return false;
}

void lintDescriptor(const InstalledDescriptor& descriptor,
                    const std::vector<std::string>& backupFolders, Findings& findings) {
  if (isLeftoverName(descriptor.fileName)) return;  // It has to go, whatever it says.
  FindingList list(descriptor.path, findings);
  if (!descriptor.readable) {
    list.error("",
               host::isDirectory(descriptor.path)
                   ? "is a folder, and is taken for a descriptor without a name"
                   : "is no property list with a dictionary, and is taken for a descriptor without "
                     "a name",
               "mend it, or move it out of the configuration folder");
    return;
  }
  lintName(descriptor, list);
  lintKeys(descriptor.content, list);
  lintPrograms(descriptor.content, list);
  lintUnjudged(descriptor.content, list);
  for (const char* key : {keys::kPreBackupServiceCommands, keys::kPostBackupServiceCommands}) {
    for (const std::string& command :
         descriptor.content.texts(key).value_or(std::vector<std::string>{})) {
      lintCommandLine(key, command, list);
    }
  }
  // What is shipped was tried with its program.
  if (!leadsToShipped(descriptor.path)) lintFiles(descriptor, backupFolders, list);
}

void lintTogether(const std::vector<InstalledDescriptor>& descriptors, Findings& findings) {
  for (const DescriptorConflict& conflict : descriptorConflicts(descriptors)) {
    FindingList list(conflict.path, findings);
    list.error(conflict.key, conflict.problem,
               "until then nothing is backed up or restored; run: " + conflict.command);
  }
}

void lintSizeAnswer(const InstalledDescriptor& descriptor, std::string_view answer,
                    Findings& findings) {
  static constexpr std::string_view kPrefix = texts::kSizeTotal;
  FindingList list(descriptor.path, findings);
  bool answered = false;
  for (const std::string_view line : splitAt(answer, '\n')) {
    if (!line.starts_with(kPrefix)) continue;
    answered = true;
    const std::string number(line.substr(kPrefix.size()));
    const long long bytes = std::strtoll(number.c_str(), nullptr, 10);
    if (bytes > std::numeric_limits<std::int32_t>::max()) {
      list.error(keys::kBackupBinaryPath, "its size answer " + number + " is read as 2147483647",
                 "have it print several lines, each up to 2147483647");
    }
  }
  const std::vector<std::string> files = descriptor.files();
  // A service that has nothing on this host may have nothing to say.
  if (!answered && std::any_of(files.begin(), files.end(), &host::exists)) {
    list.warning(keys::kBackupBinaryPath,
                 "its size answer has no line that begins with \"total := \"",
                 "have it print one for \"-cmd size -opt all\"");
  }
}

}  // namespace halyard::hostkit
