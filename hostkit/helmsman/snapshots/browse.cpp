// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/snapshots/browse.h"

#include <cstdio>
#include <optional>
#include <vector>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/visible_text.h"
#include "helmsman/program/halyard_run.h"
#include "helmsman/settings/services.h"
#include "helmsman/snapshots/host_snapshots.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

namespace {

// Halyard's warnings stand in its answer; here they go where messages belong.
bool printAnswer(const std::string& output) {
  bool answered = false;
  std::string_view rest = output;
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    const std::string_view line = rest.substr(0, end);
    if (line.starts_with(texts::kWarning) ||
        line.starts_with(texts::fixedPart(texts::kUnknownToBrowse, 0))) {
      printWarning(line);
    } else {
      answered = answered || !line.empty();
      (void)std::fputs(visibleText(line).c_str(), stdout);
      if (end != std::string_view::npos) (void)std::fputc('\n', stdout);
    }
    rest = end == std::string_view::npos ? std::string_view{} : rest.substr(end + 1);
  }
  return answered;
}

}  // namespace

int browse(const BrowseArguments& arguments) {
  int status = kFailure;
  std::string problem;
  const bool all = equalsIgnoringCase(arguments.service, "all");
  const auto service = all ? std::optional<std::string>("all")
                           : completeServiceName(servicePreferences(), arguments.service, problem);
  const auto snapshot = !service ? std::nullopt
                        : all    ? chooseSnapshot(arguments.snapshot, problem)
                                 : chooseSnapshotOf(*service, arguments.snapshot, problem);
  if (!snapshot) {
    printError(problem);
    return kFailure;
  }
  for (const IncompleteService& part : snapshot->incomplete) {
    if (all || part.name == *service) printWarning(incompleteText(part, *snapshot));
  }
  if (!halyardIsReady(status)) return status;

  std::vector<std::string> words = {"-cmd",         "browse",   "-path",
                                    snapshot->path, "-service", *service};
  if (!arguments.option.empty()) {
    words.insert(words.end(), {"-opt", arguments.option});
  }
  const host::TaskResult result = runHalyard(words);
  const bool answered = printAnswer(result.output);
  return result.status == 0 && answered && finishOutput() ? kSuccess : kFailure;
}

}  // namespace halyard::hostkit
