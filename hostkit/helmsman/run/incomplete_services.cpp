#include "helmsman/run/incomplete_services.h"

#include <map>

#include "helmsman/snapshots/incomplete_mark.h"

namespace halyard::hostkit {

std::vector<std::string> settleIncompleteServices(const std::string& metadataFolder,
                                                  std::vector<ServiceResult>& services) {
  // Two descriptors may share one service, and so one folder.
  std::map<std::string, std::vector<std::string>> reasonsOf;
  for (ServiceResult& service : services) {
    if (service.name.empty()) continue;  // Nobody can ask for it by name.
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

}  // namespace halyard::hostkit
