// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/incomplete_services.h"

#include <algorithm>
#include <map>

#include "common/incomplete_mark.h"
#include "helmsman/run/expected_services.h"
#include "helmsman/settings/local_volumes.h"

namespace halyard::hostkit {

std::vector<ServiceLack> lacksOfHost(const std::vector<std::string>& leftOut) {
  std::vector<ServiceLack> lacks;
  for (const auto& link : listedLinks(leftOut)) lacks.push_back({link.service, lackText(link)});
  for (const auto& listed : listedOnUnmounted()) {
    lacks.push_back({listed.service, lackText(listed)});
  }
  return lacks;
}

void addLacks(const std::vector<ServiceLack>& lacks, const std::vector<std::string>& undescribed,
              std::vector<ServiceResult>& services) {
  for (const ServiceLack& lack : lacks) {
    for (ServiceResult& service : services) {
      if (service.name != lack.service) continue;
      service.problems.push_back(lack.text);
      service.done = false;
    }
  }
  for (const std::string& name : undescribed) {
    ServiceResult& service = services.emplace_back();
    service.name = name;
    service.problems.push_back(undescribedText(name));
  }
}

std::vector<std::string> settleIncompleteServices(const std::string& metadataFolder,
                                                  std::vector<ServiceResult>& services) {
  // Two descriptors may share one service, and so one folder.
  std::map<std::string, std::vector<std::string>> reasonsOf;
  for (ServiceResult& service : services) {
    if (!isFolderName(service.name)) continue;  // Nobody can ask a snapshot for it by name.
    if (const auto marked = incompleteReasons(metadataFolder, service.name)) {
      for (const std::string& reason : *marked) {
        service.problems.push_back("its backup is incomplete: " + reason);
      }
      service.done = false;
    }
    if (service.done) continue;
    auto& reasons = reasonsOf[service.name];
    reasons.insert(reasons.end(), service.problems.begin(), service.problems.end());
  }
  std::vector<std::string> unmarked;
  for (const auto& [service, reasons] : reasonsOf) {
    if (!markIncomplete(metadataFolder, service, reasons)) unmarked.push_back(service);
  }
  return unmarked;
}

void addLacksOf(const Snapshot& snapshot, std::vector<ServiceResult>& services) {
  for (ServiceResult& service : services) {
    const IncompleteService* part = snapshot.partOf(service.name);
    if (part == nullptr) continue;
    for (const std::string& reason : part->reasons) {
      if (std::ranges::find(service.problems, reason) != service.problems.end()) continue;
      service.problems.push_back(reason);
    }
    service.done = false;
  }
}

}  // namespace halyard::hostkit
