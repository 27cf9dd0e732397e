// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/current_run.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/json_members.h"
#include "common/messages.h"
#include "common/paths.h"
#include "common/times.h"
#include "helmsman/program/pid_file_state.h"
#include "helmsman/program/process_tree.h"
#include "helmsman/run/host_lock.h"
#include "helmsman/run/recovered_host.h"
#include "helmsman/settings/folders.h"
#include "host/files/files.h"
#include "host/files/sync.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kLimit = 65536;
constexpr mode_t kFolderMode = 0755;

nlohmann::json parsed(const std::string& text) {
  return nlohmann::json::parse(text, nullptr, false);
}

nlohmann::json documentIn(const char* path) {
  return parsed(host::readFile(path, kLimit).value_or(""));
}

std::optional<std::string> currentMark() {
  if (!host::exists(kCurrentRunFile)) return std::nullopt;
  return host::readFile(kCurrentRunFile, kLimit).value_or("");
}

// Whether it came with the snapshot that its run took.
bool isOfLostHost(const std::string& mark) {
  const auto started = parseTime(textOf(parsed(mark), "started"));
  return started && *started <= handOverTime() && handOver().waitsForRecovery();
}

// Of the run that left this mark; absent when it has kept a record itself, or is none of this host.
std::optional<RunRecord> recordOf(const std::string& mark) {
  RunRecord record;
  record.started = parseTime(textOf(parsed(mark), "started")).value_or(secondsNow());
  record.finished = record.started;
  const auto before = readLastRecord();
  // It was ended between its record and this mark.
  if (before && before->started == record.started) return std::nullopt;
  if (isOfLostHost(mark)) return std::nullopt;
  record.result = RunRecord::Result::interrupted;
  record.problems.emplace_back(
      "the run left no record: it was killed, it crashed, the power failed, or the record could "
      "not be written");
  inheritGood(record, before);
  return record;
}

}  // namespace

std::optional<CurrentRun> CurrentRun::begin(std::string& problem) {
  Result<host::Descriptor> lock = lockHost(HostUse::backup, "backup");
  problem.clear();
  if (lock) return CurrentRun(std::move(*lock));
  if (lock.error().code != EAGAIN) {
    problem = lock.error().tried + ": " + errnoText(lock.error().code);
  }
  return std::nullopt;
}

bool CurrentRun::mark(std::int64_t started) const {
  const nlohmann::json document = {{"process", ::getpid()}, {"started", timeText(started)}};
  return makeFolders(kStateFolder, kFolderMode) &&
         host::writeFile(kRunStateFile, document.dump()) &&
         host::writeFile(kCurrentRunFile, document.dump(2) + "\n", host::Durability::power);
}

void CurrentRun::tell(const std::string& phase, const std::string& service) const {
  nlohmann::json document = documentIn(kRunStateFile);
  if (!document.is_object()) return;
  document["phase"] = phase;
  document["service"] = service;
  // Only shown: a run is no worse for it.
  (void)host::writeFile(kRunStateFile,
                        document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

void CurrentRun::end() {
  (void)::unlink(kRunStateFile);
  if (::unlink(kCurrentRunFile) == 0) (void)host::syncFolder(kStateFolder);
}

std::optional<RunningBackup> runningBackup() {
  if (!isHeldByBackup()) return std::nullopt;
  const nlohmann::json document = documentIn(kRunStateFile);
  RunningBackup running;
  running.process = static_cast<int>(integerOf(document, "process").value_or(0));
  running.started = parseTime(textOf(document, "started")).value_or(0);
  running.phase = textOf(document, "phase");
  running.service = textOf(document, "service");
  return running;
}

bool isOverdue(const RunningBackup& running) {
  // The clock may have been set since.
  if (const auto run = secondsRun(running.process)) {
    return std::chrono::duration<double>(*run) >= kLongestRun;
  }
  return running.started != 0 &&
         std::chrono::seconds(secondsNow() - running.started) >= kLongestRun;
}

std::optional<RunRecord> interruptedRun() {
  const auto mark = currentMark();
  // Read again after the lock: a run that ends or begins meanwhile has changed it.
  if (!mark || isHeldByBackup() || currentMark() != mark) return std::nullopt;
  return recordOf(*mark);
}

std::optional<RunRecord> latestRecord() {
  auto interrupted = interruptedRun();
  return interrupted ? interrupted : readLastRecord();
}

bool CurrentRun::settleInterrupted() const {
  const auto mark = currentMark();
  const auto record = mark ? recordOf(*mark) : std::nullopt;
  if (!record) return true;
  if (!keepRecord(*record)) return false;
  end();
  return true;
}

void dropMarkOfLostHost() {
  const auto mark = currentMark();
  if (mark && isOfLostHost(*mark)) CurrentRun::end();
}

bool settleInterruptedRun() {
  std::string problem;
  const auto held = CurrentRun::begin(problem);
  return held ? held->settleInterrupted() : problem.empty();
}

int refuseBeside(const std::string& problem) {
  if (!problem.empty()) {
    printError(problem);
    return kFailure;
  }
  const auto running = runningBackup();
  const HostHolder holder = hostHolder();
  const bool overdue = running ? isOverdue(*running) : holder.isOverdue();
  printError((running ? "another backup" : holder.text) +
             (overdue ? " has been running for longer than a day" : " is running") +
             (running ? " (see: helmsman status)" : "; a backup would show half of its work"));
  return overdue ? kFailure : kBusy;
}

}  // namespace halyard::hostkit
