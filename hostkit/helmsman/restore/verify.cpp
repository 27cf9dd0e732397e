#include "helmsman/restore/verify.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/table.h"
#include "helmsman/program/halyard_run.h"
#include "helmsman/settings/services.h"
#include "product/descriptor_keys.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

namespace {

// A service to verify, and what it is compared with.
struct Subject {
  std::string service;
  Snapshot snapshot;

  const IncompleteService* part() const { return snapshot.partOf(service); }
};

struct Verdict {
  Subject subject;
  std::optional<std::int32_t> mismatches;
  std::string log;
};

// Absent, with the reason, when a name does not fit.
std::optional<std::vector<Subject>> subjectsOf(const VerifyArguments& arguments,
                                               std::string& problem) {
  const PropertyDictionary preferences = servicePreferences();
  std::vector<Subject> subjects;
  for (const std::string& typed : arguments.services) {
    const auto service = completeServiceName(preferences, typed, problem);
    auto snapshot =
        service ? chooseSnapshotOf(*service, arguments.snapshot, problem) : std::nullopt;
    if (!snapshot) return std::nullopt;
    subjects.push_back({*service, std::move(*snapshot)});
  }
  if (!arguments.services.empty()) return subjects;
  const auto newest = chooseSnapshot(arguments.snapshot, problem);
  if (!newest) return std::nullopt;
  for (const auto& [key, value] : preferences) {
    if (descriptorsOfService(key).empty()) continue;
    auto snapshot = chooseSnapshotOf(key, arguments.snapshot, problem);
    if (snapshot) subjects.push_back({key, std::move(*snapshot)});
  }
  if (!subjects.empty()) return subjects;
  problem = "the snapshot " + newest->name + " holds no service that is installed here";
  return std::nullopt;
}

// Halyard uses the last descriptor whose file name holds the service's name.
std::string verifyLogOf(const std::string& service) {
  const auto descriptors = descriptorsOfService(service);
  return descriptors.empty()
             ? ""
             : descriptors.back().content.text(descriptor_keys::kVerifyLog).value_or("");
}

void printVerdicts(const std::vector<Verdict>& verdicts, bool asJson) {
  nlohmann::json list = nlohmann::json::array();
  std::vector<std::vector<std::string>> rows = {{"SERVICE", "MISMATCHES", "SNAPSHOT", "LOG"}};
  for (const Verdict& verdict : verdicts) {
    list.push_back({{"service", verdict.subject.service},
                    {"snapshot", verdict.subject.snapshot.name},
                    {"mismatches", nullptr},
                    {"incomplete", nlohmann::json::array()}});
    if (const IncompleteService* part = verdict.subject.part()) {
      list.back()["incomplete"] = part->reasons;
    }
    if (verdict.mismatches) list.back()["mismatches"] = *verdict.mismatches;
    if (!verdict.log.empty()) list.back()["log"] = verdict.log;
    rows.push_back({verdict.subject.service,
                    verdict.mismatches ? std::to_string(*verdict.mismatches) : "no answer",
                    verdict.subject.snapshot.name, verdict.log});
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
  const auto subjects = subjectsOf(arguments, problem);
  if (!subjects) {
    printError(problem);
    return kFailure;
  }
  if (!halyardIsReady(status)) return status;

  std::vector<Verdict> verdicts;
  bool allMatch = true;
  bool allWhole = true;
  for (const Subject& subject : *subjects) {
    if (const IncompleteService* part = subject.part()) {
      printWarning(incompleteText(*part, subject.snapshot));
      allWhole = false;
    }
    Verdict verdict{subject, verifyService(subject.service, subject.snapshot),
                    verifyLogOf(subject.service)};
    allMatch = allMatch && verdict.mismatches == 0;
    verdicts.push_back(std::move(verdict));
  }
  printVerdicts(verdicts, arguments.json);
  if (!allMatch || !finishOutput()) return kFailure;
  return allWhole ? kSuccess : kPartial;
}

}  // namespace halyard::hostkit
