// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/restore/recovery.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/times.h"
#include "helmsman/run/run_judge.h"
#include "host/files/files.h"
#include "product/descriptor_keys.h"
#include "product/paths.h"
#include "product/run_texts.h"

namespace halyard::hostkit {

namespace {

ServiceRecovery planned(const InstalledDescriptor& descriptor, const Snapshot& source) {
  ServiceRecovery service;
  service.name = descriptor.serviceName();
  const IncompleteService* part = source.partOf(service.name);
  service.held = part != nullptr || source.holdsWhole(service.name);
  if (part != nullptr) service.lacks = part->reasons;
  service.plan = planRestore({descriptor}, source);
  service.canVerify = descriptor.content.text(descriptor_keys::kVerifyBinaryPath).has_value();
  const auto program = descriptor.content.text(descriptor_keys::kRestoreBinaryPath);
  if (service.held && (!program || !host::isExecutableFile(*program))) {
    service.problems.push_back("its restore program " + program.value_or("") +
                               " cannot be run: what only that puts back is missing");
  }
  return service;
}

ServiceRecovery withoutDescriptor(const std::string& name) {
  ServiceRecovery service;
  service.name = name;
  service.held = true;
  service.problems.emplace_back("no descriptor of it is installed on this host");
  return service;
}

bool isPlanned(const Recovery& recovery, const std::string& name) {
  return std::ranges::any_of(recovery.services,
                             [&](const ServiceRecovery& service) { return service.name == name; });
}

}  // namespace

ServiceRecovery::Result ServiceRecovery::result() const {
  if (!held) return Result::notInBackup;
  if (!problems.empty()) return Result::failed;
  if (!saidDone) return Result::unknown;
  return lacks.empty() ? Result::restored : Result::partial;
}

int Recovery::status() const {
  const auto count = [this](ServiceRecovery::Result result) {
    return std::ranges::count_if(
        services, [result](const ServiceRecovery& service) { return service.result() == result; });
  };
  using Result = ServiceRecovery::Result;
  const auto back = count(Result::restored);
  const auto part = count(Result::partial) + count(Result::unknown);
  if (back + part == 0) return kFailure;
  return part + count(Result::failed) == 0 && problems.empty() ? kSuccess : kPartial;
}

Recovery planRecovery() {
  Recovery recovery;
  recovery.source = readMetadataFolder(paths::kMetadataFolder);
  for (const InstalledDescriptor& descriptor : installedDescriptors()) {
    recovery.services.push_back(planned(descriptor, recovery.source));
  }
  std::vector<std::string> held = recovery.source.services;
  for (const IncompleteService& part : recovery.source.incomplete) held.push_back(part.name);
  for (const std::string& name : held) {
    if (!isPlanned(recovery, name)) recovery.services.push_back(withoutDescriptor(name));
  }
  return recovery;
}

void judgeRecovery(Recovery& recovery, std::string_view progressLog, const PlugInJournal& told) {
  for (const std::string_view line : splitAt(progressLog, '\n')) {
    const auto step = parseProgressLine(line);
    if (!step || step->message != texts::kServiceRestored) continue;
    for (ServiceRecovery& service : recovery.services) {
      service.ended = service.ended || service.name == step->service;
    }
  }
  for (ServiceRecovery& service : recovery.services) {
    if (!service.held) continue;
    service.saidDone = told.saysDone(service.name);
    if (!service.ended) service.problems.emplace_back("the restore did not come to its end");
    for (std::string& problem : restoreProblems(service.plan)) {
      service.problems.push_back(std::move(problem));
    }
  }
  if (!host::isAbsent(paths::kMetadataFolder)) {
    recovery.problems.emplace_back(std::string(paths::kMetadataFolder) +
                                   " is still there: Halyard ended early");
  }
}

const char* resultWord(ServiceRecovery::Result result) {
  switch (result) {
    case ServiceRecovery::Result::restored:
      return "restored";
    case ServiceRecovery::Result::partial:
      return "in part";
    case ServiceRecovery::Result::unknown:
      return "unknown";
    case ServiceRecovery::Result::failed:
      return "failed";
    case ServiceRecovery::Result::notInBackup:
      break;
  }
  return "not in the backup";
}

nlohmann::json recoveryJson(const Recovery& recovery) {
  const int status = recovery.status();
  nlohmann::json document = {{"time", timeText(secondsNow())},
                             {"result", status == kSuccess   ? "good"
                                        : status == kPartial ? "partial"
                                                             : "failed"},
                             {"snapshot", nullptr},
                             {"services", nlohmann::json::array()},
                             {"problems", recovery.problems}};
  if (!recovery.source.name.empty()) document["snapshot"] = recovery.source.name;
  for (const ServiceRecovery& service : recovery.services) {
    document["services"].push_back({{"name", service.name},
                                    {"result", resultWord(service.result())},
                                    {"lacks", service.lacks},
                                    {"problems", service.problems}});
  }
  return document;
}

}  // namespace halyard::hostkit
