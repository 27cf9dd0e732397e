// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/snapshots/compare.h"

#include <optional>
#include <utility>
#include <vector>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "helmsman/settings/services.h"
#include "helmsman/snapshots/engine_call.h"
#include "helmsman/snapshots/host_snapshots.h"
#include "product/paths.h"

namespace halyard::hostkit {

int diff(const DiffArguments& arguments) {
  std::string problem;
  const auto service = completeServiceName(servicePreferences(), arguments.service, problem);
  const auto older = service ? chooseSnapshot(arguments.older, problem) : std::nullopt;
  const bool isNow = arguments.newer.empty();
  const auto newer =
      older && !isNow ? chooseSnapshot(arguments.newer, problem) : std::optional<Snapshot>();
  if (!service || !older || (!isNow && !newer)) {
    printError(problem);
    return kFailure;
  }
  std::vector<std::string> words = {"diff", older->name, isNow ? "--now" : newer->name};
  std::vector<std::string> paths = filesOfService(*service);
  if (!isNow) paths.push_back(joinPath(paths::kMetadataFolder, *service));
  if (paths.empty()) {
    printError(*service + " lists no files, so that nothing of it can be compared with this host");
    return kFailure;
  }
  words.insert(words.end(), paths.begin(), paths.end());
  const int status = callEngine(std::move(words), arguments.json ? AnswerAs::json : AnswerAs::text);
  if (isNow) {
    std::string compared;
    for (const std::string& path : paths) compared += (compared.empty() ? "" : ", ") + path;
    printNote("only these were compared: " + compared + "; all that the backup of " + *service +
              " holds is compared by: helmsman verify " + *service + " --from " + older->name);
  }
  return status;
}

int find(const FindArguments& arguments) {
  return callEngine({"find", "--", arguments.pattern},
                    arguments.json ? AnswerAs::json : AnswerAs::text);
}

}  // namespace halyard::hostkit
