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
constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

// When the first of what the process has started began.
std::uint64_t beginOf(int process) {
  std::uint64_t begin = kNever;
  for (const ProcessEntry& entry : processesBelow(allProcesses(), process)) {
    begin = std::min(begin, entry.startTime);
  }
  return begin;
}

// What the process has started, and this process's orphans that are no older than `begin`.
std::vector<ProcessEntry> startedBy(int process, std::uint64_t begin) {
  const std::vector<ProcessEntry> all = allProcesses();
  std::vector<ProcessEntry> started = processesBelow(all, process);
  for (const ProcessEntry& entry : processesBelow(all, ::getpid())) {
    if (entry.parent != ::getpid() || entry.process == process || entry.startTime < begin) continue;
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
  const std::uint64_t begin = beginOf(process);
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
  for (const ProcessEntry& entry : startedBy(process, beginOf(process))) {
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
