#include "helmsman/restore/verify.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/table.h"
#include "helmsman/program/halyard_run.h"
#include "helmsman/settings/services.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

namespace {

struct Verdict {
  std::string service;
  std::optional<std::int32_t> mismatches;
  std::string log;
};

bool holds(const Snapshot& snapshot, const std::string& service) {
  return std::find(snapshot.services.begin(), snapshot.services.end(), service) !=
         snapshot.services.end();
}

// The services to verify; absent, with the reason, when a name does not fit.
std::optional<std::vector<std::string>> chosenServices(const VerifyArguments& arguments,
                                                       const Snapshot& snapshot,
                                                       std::string& problem) {
  const PropertyDictionary preferences = servicePreferences();
  std::vector<std::string> chosen;
  for (const std::string& typed : arguments.services) {
    const auto service = completeServiceName(preferences, typed, problem);
    if (!service) return std::nullopt;
    if (!holds(snapshot, *service)) {
      problem = "the snapshot " + snapshot.name + " does not hold " + *service;
      return std::nullopt;
    }
    chosen.push_back(*service);
  }
  if (!arguments.services.empty()) return chosen;
  for (const auto& [key, value] : preferences) {
    if (holds(snapshot, key) && !descriptorsOfService(key).empty()) chosen.push_back(key);
  }
  if (chosen.empty()) {
    problem = "the snapshot " + snapshot.name + " holds no service that is installed here";
    return std::nullopt;
  }
  return chosen;
}

// Halyard uses the last descriptor whose file name holds the service's name.
std::string verifyLogOf(const std::string& service) {
  const auto descriptors = descriptorsOfService(service);
  return descriptors.empty() ? "" : descriptors.back().content.text("VerifyLog").value_or("");
}

void printVerdicts(const std::vector<Verdict>& verdicts, bool asJson) {
  nlohmann::json list = nlohmann::json::array();
  std::vector<std::vector<std::string>> rows = {{"SERVICE", "MISMATCHES", "LOG"}};
  for (const Verdict& verdict : verdicts) {
    list.push_back({{"service", verdict.service}, {"mismatches", nullptr}});
    if (verdict.mismatches) list.back()["mismatches"] = *verdict.mismatches;
    if (!verdict.log.empty()) list.back()["log"] = verdict.log;
    rows.push_back({verdict.service,
                    verdict.mismatches ? std::to_string(*verdict.mismatches) : "no answer",
                    verdict.log});
  }
  if (asJson) {
    printJson({{"services", std::move(list)}});
  } else {
    (void)std::fputs(tableText(rows).c_str(), stdout);
  }
}

}  // namespace

std::optional<std::int32_t> mismatchesIn(std::string_view diagnosticOutput) {
  static const std::string kSummary = std::string(texts::kFailureSummary) + texts::kValueMark;
  static const std::string kResult = std::string(texts::kVerifyResult) + texts::kValueMark;
  // Without a summary line of the plug-in the result 99 counts nothing.
  bool reported = false;
  std::optional<std::int32_t> result;
  for (const std::string_view line : splitAt(diagnosticOutput, '\n')) {
    if (line.starts_with(kSummary)) reported = true;
    if (line.starts_with(kResult)) result = leadingInteger(line.substr(kResult.size()));
  }
  return reported ? result : std::nullopt;
}

std::optional<std::int32_t> verifyService(const std::string& service, const Snapshot& snapshot) {
  // Halyard looks for the service's folder directly below the path, which is where it lies in the
  // metadata folder, not in the snapshot itself.
  const host::TaskResult result =
      runHalyard({"-cmd", "verify", "-path", snapshot.metadataFolder, "-service", service}, {},
                 Diagnostics::on);
  return result.status == 0 ? mismatchesIn(result.output) : std::nullopt;
}

int verify(const VerifyArguments& arguments) {
  int status = kFailure;
  std::string problem;
  const auto snapshot = chooseSnapshot(arguments.snapshot, problem);
  const auto services = snapshot ? chosenServices(arguments, *snapshot, problem) : std::nullopt;
  if (!services) {
    printError(problem);
    return kFailure;
  }
  if (!halyardIsReady(status)) return status;

  std::vector<Verdict> verdicts;
  bool allMatch = true;
  for (const std::string& service : *services) {
    Verdict verdict{service, verifyService(service, *snapshot), verifyLogOf(service)};
    allMatch = allMatch && verdict.mismatches == 0;
    verdicts.push_back(std::move(verdict));
  }
  printVerdicts(verdicts, arguments.json);
  return allMatch && finishOutput() ? kSuccess : kFailure;
}

}  // namespace halyard::hostkit
