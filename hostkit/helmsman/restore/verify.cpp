// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/restore/verify.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/messages.h"
#include "common/table.h"
#include "helmsman/program/halyard_run.h"
#include "helmsman/run/expected_services.h"
#include "helmsman/settings/servers.h"
#include "helmsman/settings/services.h"
#include "product/descriptor_keys.h"
#include "product/paths.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

namespace {

// A service to verify, and what it is compared with.
struct Subject {
  enum class State { toVerify, notOnThisHost, notVerified };

  std::string service;
  State state = State::toVerify;
  std::string reason;  // Why it cannot be verified.
  std::optional<Snapshot> snapshot;

  const IncompleteService* part() const {
    return state == State::toVerify ? snapshot->partOf(service) : nullptr;
  }
};

struct Verdict {
  Subject subject;
  std::optional<std::int32_t> mismatches;
  std::string log;
};

bool isAbsentIn(const Snapshot& snapshot, const std::string& service) {
  return std::ranges::find(snapshot.absent, service) != snapshot.absent.end();
}

bool isOnThisHost(const std::string& service) {
  const auto descriptors = installedDescriptors();
  const auto found = std::ranges::find(descriptors, service, &InstalledDescriptor::serviceName);
  return found == descriptors.end() || hostkit::isOnThisHost(*found);
}

// Why Halyard has no program to ask; empty when it has one.
std::string undescribedReason(const std::string& service) {
  if (!descriptorsOfService(service).empty()) return "";
  const PropertyDictionary preferences = servicePreferences();
  const PropertyValue* preference = preferences.find(service);
  const bool isOn = preference != nullptr && preference->integerValue() != 0;
  return isOn ? undescribedText(service)
              : "it is not enabled (see: helmsman enable " + service + ")";
}

Subject subjectOf(const std::string& service, const std::string& typedSnapshot,
                  const Snapshot& newest) {
  Subject subject{service, Subject::State::toVerify, "", std::nullopt};
  subject.snapshot = chooseSnapshotOf(service, typedSnapshot, subject.reason);
  const bool wasAbsent = isAbsentIn(newest, service);
  // That an older snapshot holds it is no loss when it was gone before the newest.
  if ((wasAbsent || !subject.snapshot) && !isOnThisHost(service)) {
    return {service, Subject::State::notOnThisHost, "", std::nullopt};
  }
  if (!subject.snapshot && wasAbsent) {
    subject.reason = "it was not on this host when " + newest.name + " was taken";
  } else if (!subject.snapshot && typedSnapshot.empty()) {
    subject.reason = "no snapshot holds it";
  } else if (subject.snapshot && servicePreferences().find(service) == nullptr) {
    subject.reason = std::string("Halyard verifies what its preferences list; list it in ") +
                     paths::kPreferenceFile;
  } else if (subject.snapshot) {
    subject.reason = undescribedReason(service);
  }
  if (!subject.reason.empty()) subject.state = Subject::State::notVerified;
  return subject;
}

// What is to be verified without a word: all that a backup has to hold.
std::vector<Subject> expectedSubjects(const std::string& typedSnapshot, const Snapshot& newest,
                                      std::vector<std::string>& problems) {
  ExpectedServices expected = expectedServices();
  problems = std::move(expected.problems);
  std::vector<Subject> subjects;
  for (const InstalledDescriptor& descriptor : expected.descriptors) {
    const std::string service = descriptor.serviceName();
    if (std::ranges::find(subjects, service, &Subject::service) != subjects.end()) continue;
    subjects.push_back(subjectOf(service, typedSnapshot, newest));
  }
  for (const std::string& service : expected.undescribed) {
    subjects.push_back(
        {service, Subject::State::notVerified, undescribedText(service), std::nullopt});
  }
  return subjects;
}

// Absent, with the reason, when a name does not fit.
std::optional<std::vector<Subject>> namedSubjects(const VerifyArguments& arguments,
                                                  const Snapshot& newest, std::string& problem) {
  const PropertyDictionary preferences = servicePreferences();
  std::vector<Subject> subjects;
  for (const std::string& typed : arguments.services) {
    const auto service = completeServiceName(preferences, typed, problem);
    if (!service) return std::nullopt;
    subjects.push_back(subjectOf(*service, arguments.snapshot, newest));
  }
  return subjects;
}

// Halyard uses the last descriptor whose file name holds the service's name.
std::string verifyLogOf(const std::string& service) {
  const auto descriptors = descriptorsOfService(service);
  return descriptors.empty()
             ? ""
             : descriptors.back().content.text(descriptor_keys::kVerifyLog).value_or("");
}

const char* stateText(const Verdict& verdict) {
  switch (verdict.subject.state) {
    case Subject::State::notOnThisHost:
      return "not on this host";
    case Subject::State::notVerified:
      return "not verified";
    case Subject::State::toVerify:
      break;
  }
  return verdict.mismatches ? "verified" : "no answer";
}

nlohmann::json jsonOf(const Verdict& verdict) {
  nlohmann::json entry = {{"service", verdict.subject.service},
                          {"state", stateText(verdict)},
                          {"snapshot", nullptr},
                          {"mismatches", nullptr},
                          {"incomplete", nlohmann::json::array()}};
  if (verdict.subject.snapshot) entry["snapshot"] = verdict.subject.snapshot->name;
  if (const IncompleteService* part = verdict.subject.part()) entry["incomplete"] = part->reasons;
  if (verdict.mismatches) entry["mismatches"] = *verdict.mismatches;
  if (!verdict.subject.reason.empty()) entry["reason"] = verdict.subject.reason;
  if (!verdict.log.empty()) entry["log"] = verdict.log;
  return entry;
}

void printVerdicts(const std::vector<Verdict>& verdicts, const std::vector<std::string>& problems,
                   bool asJson) {
  nlohmann::json list = nlohmann::json::array();
  std::vector<std::vector<std::string>> rows = {{"SERVICE", "MISMATCHES", "SNAPSHOT", "LOG"}};
  for (const Verdict& verdict : verdicts) {
    list.push_back(jsonOf(verdict));
    rows.push_back({verdict.subject.service,
                    verdict.mismatches ? std::to_string(*verdict.mismatches) : stateText(verdict),
                    verdict.subject.snapshot ? verdict.subject.snapshot->name : "-", verdict.log});
  }
  if (asJson) {
    printJson({{"services", std::move(list)}, {"problems", problems}});
  } else {
    (void)std::fputs(tableText(rows).c_str(), stdout);
  }
}

Verdict verdictOf(const Subject& subject) {
  if (subject.state == Subject::State::notVerified) {
    printWarning(subject.service + " was not verified: " + subject.reason);
  }
  if (subject.state != Subject::State::toVerify) return {subject, std::nullopt, ""};
  if (const IncompleteService* part = subject.part()) {
    printWarning(incompleteText(*part, *subject.snapshot));
  }
  return {subject, verifyService(subject.service, *subject.snapshot), verifyLogOf(subject.service)};
}

// Success is a promise about every service that was to be verified.
int statusOf(const std::vector<Verdict>& verdicts, const std::vector<std::string>& problems) {
  bool compared = false;
  bool all = problems.empty();
  for (const Verdict& verdict : verdicts) {
    if (verdict.subject.state == Subject::State::toVerify) {
      if (verdict.mismatches != 0) return kFailure;
      compared = true;
      all = all && verdict.subject.part() == nullptr;
    } else if (verdict.subject.state == Subject::State::notVerified) {
      all = false;
    }
  }
  if (all) return kSuccess;
  return compared ? kPartial : kFailure;
}

}  // namespace

std::string verifyProblem(const std::string& service,
                          const std::optional<std::int32_t>& mismatches) {
  if (!mismatches) return "verify gave no answer";
  const std::string log = verifyLogOf(service);
  return "verify reports " + std::to_string(*mismatches) +
         (*mismatches == 1 ? " mismatch" : " mismatches") +
         (log.empty() ? "" : " (see " + log + ")");
}

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
  if (!halyardIsReady(status)) return status;
  std::string problem;
  std::vector<std::string> problems;
  const auto newest = chooseSnapshot(arguments.snapshot, problem);
  std::optional<std::vector<Subject>> subjects;
  if (newest) {
    subjects = arguments.services.empty() ? expectedSubjects(arguments.snapshot, *newest, problems)
                                          : namedSubjects(arguments, *newest, problem);
  }
  if (!subjects) {
    printError(problem);
    return kFailure;
  }
  for (const std::string& text : problems) printWarning(text);
  if (subjects->empty()) {
    printError("no service is switched on (see: helmsman enable)");
    return kFailure;
  }
  std::vector<Verdict> verdicts;
  for (const Subject& subject : *subjects) verdicts.push_back(verdictOf(subject));
  printVerdicts(verdicts, problems, arguments.json);
  return finishOutput() ? statusOf(verdicts, problems) : kFailure;
}

}  // namespace halyard::hostkit
