#include "helmsman/settings/timer.h"

#include <vector>

#include "base/text.h"
#include "common/messages.h"
#include "common/paths.h"
#include "helmsman/settings/folders.h"
#include "host/files/files.h"
#include "host/process/task.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

constexpr char kDropInName[] = "schedule.conf";

bool runSystemctl(const std::vector<std::string>& words) {
  host::TaskOptions options;
  options.plainLocale = true;
  const host::TaskResult result = host::RunTask(std::string(kSystemctlProgram), words, options);
  if (result.status == 0) return true;
  std::string command = "systemctl";
  for (const std::string& word : words) command += " " + word;
  printError(command + " failed: " + std::string(trimLineFeeds(result.error)));
  return false;
}

}  // namespace

bool systemdRuns() { return host::isDirectory("/run/systemd/system"); }

bool setTimer(TimerState state, const std::string& calendar) {
  // The empty assignment takes the packaged calendar away: lines add up otherwise.
  const std::string text =
      "# Written by helmsman schedule.\n[Timer]\nOnCalendar=\nOnCalendar=" + calendar + "\n";
  const std::string path = joinPath(kTimerDropInFolder, kDropInName);
  if (!makeFolders(kTimerDropInFolder, 0755) ||
      !host::writeFile(path, text, host::Durability::power)) {
    printError(path + " could not be written");
    return false;
  }
  if (!systemdRuns()) {
    if (state == TimerState::on) {
      printWarning(std::string("systemd does not run here: start ") + paths::kAdministrationTool +
                   " backup by other means");
    }
    return true;
  }
  return runSystemctl({"daemon-reload"}) &&
         runSystemctl({state == TimerState::on ? "enable" : "disable", "--now", kTimerUnit});
}

}  // namespace halyard::hostkit
