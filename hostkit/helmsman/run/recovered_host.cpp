// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/recovered_host.h"

#include <sys/stat.h>

#include "base/property_list.h"
#include "base/text.h"
#include "common/paths.h"
#include "helmsman/run/metadata_check.h"
#include "host/files/files.h"
#include "host/files/property_file.h"
#include "host/process/task.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

constexpr std::string_view kFinishFirst =
    ". A backup would destroy it; finish the recovery first: helmsman recover [--from SNAPSHOT]";

std::string volumeIn(const std::optional<PropertyDictionary>& report) {
  return report ? report->text("VolumeUUID").value_or("") : "";
}

}  // namespace

HandOver handOver() {
  using Kind = HandOver::Kind;
  HandOver answer;
  if (!host::isDirectory(paths::kMetadataFolder)) return answer;
  answer.kind = Kind::interrupted;
  if (signatureIn(paths::kMetadataFolder).empty()) return answer;
  answer.recorded = volumeIn(host::readDictionary(
      joinPath(std::string(paths::kMetadataFolder), paths::kSourceDiskInfoName)));
  const host::TaskResult report =
      host::RunTask(std::string(paths::kVolumeTool), {"info", "-plist", "/"});
  answer.booted = volumeIn(parseDictionary(report.output));
  if (answer.recorded.empty() || answer.booted.empty()) {
    answer.kind = Kind::unknown;
  } else {
    answer.kind = answer.recorded == answer.booted ? Kind::own : Kind::recovered;
  }
  return answer;
}

std::int64_t handOverTime() {
  const std::string signature =
      joinPath(std::string(paths::kMetadataFolder), paths::kSignatureName);
  struct stat status {};
  return ::lstat(signature.c_str(), &status) == 0 ? status.st_mtim.tv_sec : 0;
}

std::string describe(const HandOver& handOver) {
  const std::string folder = paths::kMetadataFolder;
  switch (handOver.kind) {
    case HandOver::Kind::none:
      return "there is no " + folder + ": this host was not brought back from a snapshot that " +
             "holds services";
    case HandOver::Kind::interrupted:
      return folder + " carries no signature: the backup that made it was interrupted";
    case HandOver::Kind::own:
      return folder + " is of the volume that is booted, " + handOver.booted +
             ": an ordinary backup left it, and nothing was lost";
    case HandOver::Kind::unknown:
      return std::string(
                 "it cannot be told whether this host was brought back: the identifier of ") +
             (handOver.recorded.empty() ? "the volume in " + folder : "the volume at /") +
             " is missing";
    case HandOver::Kind::recovered:
      break;
  }
  return "this host was brought back from a snapshot: " + folder + " is of the volume " +
         handOver.recorded + ", and " + handOver.booted + " is booted";
}

std::string refusalOfBackup(const HandOver& handOver) {
  return describe(handOver) + std::string(kFinishFirst);
}

bool isRefusalOfBackup(std::string_view problem) { return problem.ends_with(kFinishFirst); }

}  // namespace halyard::hostkit
