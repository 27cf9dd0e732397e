// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/plugin_watch.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <limits>
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include "common/paths.h"
#include "helmsman/program/process_tree.h"
#include "product/paths.h"

namespace halyard::hostkit {

namespace {

constexpr std::chrono::seconds kGrace{5};
constexpr std::chrono::milliseconds kLook{20};

// In the order of their starts; within one tick the number tells.
using Begin = std::pair<std::uint64_t, int>;
constexpr Begin kNever = {std::numeric_limits<std::uint64_t>::max(), 0};

Begin beginOf(const ProcessEntry& entry) { return {entry.startTime, entry.process}; }

// When the first of what the process has started began.
Begin beginBelow(int process) {
  Begin begin = kNever;
  for (const ProcessEntry& entry : processesBelow(allProcesses(), process)) {
    begin = std::min(begin, beginOf(entry));
  }
  return begin;
}

// What the process has started, and this process's orphans that are no older than `begin`.
std::vector<ProcessEntry> startedBy(int process, const Begin& begin) {
  const std::vector<ProcessEntry> all = allProcesses();
  std::vector<ProcessEntry> started = processesBelow(all, process);
  for (const ProcessEntry& entry : processesBelow(all, ::getpid())) {
    if (entry.parent != ::getpid() || entry.process == process || beginOf(entry) < begin) continue;
    started.push_back(entry);
    for (const ProcessEntry& below : processesBelow(all, entry.process)) started.push_back(below);
  }
  return started;
}

bool isAlive(int process) {
  return std::ranges::any_of(allProcesses(), [process](const ProcessEntry& entry) {
    return entry.process == process && !entry.hasEnded;
  });
}

// Asks again and again who is left: what has been told to end may start others on its way out.
template <typename Left>
void endAll(const Left& left) {
  for (const int signal : {SIGTERM, SIGKILL}) {
    std::set<int> told;
    const auto deadline = std::chrono::steady_clock::now() + kGrace;
    while (std::chrono::steady_clock::now() < deadline) {
      const std::vector<int> processes = left();
      if (processes.empty()) return;
      for (const int process : processes) {
        if (told.insert(process).second) (void)::kill(process, signal);
      }
      std::this_thread::sleep_for(kLook);
    }
  }
}

}  // namespace

int childRunning(const std::string& program) {
  for (const ProcessEntry& entry : allProcesses()) {
    if (entry.parent == ::getpid() && !entry.hasEnded && programOf(entry.process) == program) {
      return entry.process;
    }
  }
  return 0;
}

void endWhatWasStartedBy(int process, AndThen andThen) {
  (void)::kill(process, SIGSTOP);
  const Begin begin = beginBelow(process);
  endAll([process, begin] {
    std::vector<int> left;
    for (const ProcessEntry& entry : startedBy(process, begin)) left.push_back(entry.process);
    return left;
  });
  if (andThen == AndThen::endToo) (void)::kill(process, SIGTERM);
  (void)::kill(process, SIGCONT);
  if (andThen == AndThen::goOn) return;
  endAll([process] { return isAlive(process) ? std::vector<int>{process} : std::vector<int>{}; });
}

PluginWatch::Clock::duration PluginWatch::stillFor(int process) {
  std::map<int, std::pair<std::uint64_t, std::uint64_t>> processes;
  // Orphans are left out: a server of a pre-backup command may be among them, which is never still.
  for (const ProcessEntry& entry : processesBelow(allProcesses(), process)) {
    processes[entry.process] = {entry.ticks, bytesWrittenBy(entry.process)};
  }
  if (processes.empty() || processes != processes_) {
    processes_ = std::move(processes);
    restart();
    return {};
  }
  // The walk is only worth its time while the processes themselves tell nothing.
  const TreeActivity folder = treeActivity(paths::kMetadataFolder);
  if (folder != folder_) {
    folder_ = folder;
    restart();
    return {};
  }
  return Clock::now() - lastProgress_;
}

}  // namespace halyard::hostkit
