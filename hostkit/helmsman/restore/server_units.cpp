// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/restore/server_units.h"

#include <algorithm>
#include <map>

#include "base/text.h"
#include "common/messages.h"
#include "common/paths.h"
#include "host/files/files.h"
#include "host/process/task.h"

namespace halyard::hostkit {

namespace {

constexpr char kSystemdRuns[] = "/run/systemd/system";

host::TaskResult systemctl(const std::string& word, const std::string& unit) {
  return host::RunTask(std::string(kSystemctlProgram), {word, unit});
}

// "active", "failed", "inactive"...
std::string answerOf(const std::string& word, const std::string& unit) {
  return std::string(trimLineFeeds(systemctl(word, unit).output));
}

bool isToRun(const std::string& unit) {
  const std::string state = answerOf("is-active", unit);
  return state == "active" || state == "activating" || state == "reloading" || state == "failed" ||
         answerOf("is-enabled", unit) == "enabled";
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::string notRunning(const std::string& unit) {
  return unit + " does not run (see: systemctl status " + unit + ")";
}

bool did(const std::string& word, const std::string& unit) {
  const host::TaskResult result = systemctl(word, unit);
  if (result.status == 0) return true;
  printError("systemctl " + word + " " + unit + " ended with status " +
             std::to_string(result.status) + " (see: systemctl status " + unit + ")");
  return false;
}

}  // namespace

std::optional<std::vector<std::string>> unitsOfService(const std::string& service) {
  static const std::map<std::string, std::vector<std::string>> kUnits = {
      {"agendaHost", {"radicale.service"}},
      {"depotHost", {"smbd.service", "nmbd.service", "winbind.service", "nfs-server.service"}},
      {"parleyHost", {"prosody.service", "ejabberd.service"}},
      {"postHost", {"postfix.service", "dovecot.service"}},
      {"rosterHost", {"slapd.service"}},
      {"siteHost", {"nginx.service", "apache2.service"}},
  };
  const auto found = kUnits.find(service);
  if (found == kUnits.end()) return std::nullopt;
  return found->second;
}

ServerUnits::ServerUnits(const std::string& service) {
  const auto known = unitsOfService(service);
  if (!known) {
    advice_ = "the servers of " + service + " are not known: restart what uses these items";
  } else if (!host::isDirectory(kSystemdRuns)) {
    advice_ =
        "systemd does not run here: restart the server of " + service + " (" + joined(*known) + ")";
  } else {
    std::ranges::copy_if(*known, std::back_inserter(units_), isToRun);
  }
}

bool ServerUnits::stop() const {
  bool stopped = true;
  for (const std::string& unit : units_) stopped = did("stop", unit) && stopped;
  return stopped;
}

bool ServerUnits::start() const {
  bool running = true;
  for (const std::string& unit : units_) {
    (void)systemctl("reset-failed", unit);  // It may have nothing to forget.
    running = did("start", unit) && running;
    if (answerOf("is-active", unit) == "active") {
      printNote("started " + unit);
      continue;
    }
    printError(notRunning(unit));
    running = false;
  }
  return running;
}

std::vector<std::string> ServerUnits::settle() const {
  std::vector<std::string> problems;
  for (const std::string& unit : units_) {
    if (answerOf("is-active", unit) == "active") continue;
    (void)systemctl("reset-failed", unit);
    (void)systemctl("start", unit);  // What counts is whether it runs.
    if (answerOf("is-active", unit) == "active") {
      printNote("started " + unit);
    } else {
      problems.push_back(notRunning(unit));
    }
  }
  return problems;
}

}  // namespace halyard::hostkit
