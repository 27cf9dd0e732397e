// SPDX-FileCopyrightText: 2026 The Halyard authors
// SPDX-License-Identifier: MIT

#include "helmsman/run/run_record.h"

#include <nlohmann/json.hpp>

#include "base/text.h"
#include "common/exit_status.h"
#include "common/json_members.h"
#include "common/paths.h"
#include "common/times.h"
#include "helmsman/settings/folders.h"
#include "host/files/files.h"
#include "host/tree/move_item.h"

namespace halyard::hostkit {

namespace {

constexpr std::size_t kRecordLimit = std::size_t{16} << 20;
constexpr std::size_t kKeptResults = 30;
constexpr mode_t kStateFolderMode = 0755;
constexpr char kGoodWord[] = "good";

nlohmann::json serviceJson(const ServiceResult& service) {
  return {{"name", service.name},
          {"result", resultWord(service)},
          {"copied", service.copied ? nlohmann::json(*service.copied) : nlohmann::json()},
          {"bytes", service.bytes},
          {"missing", service.missing},
          {"problems", service.problems},
          {"log", service.log.empty() ? nlohmann::json() : nlohmann::json(service.log)}};
}

std::int64_t timeOf(const nlohmann::json& document, const char* key) {
  return parseTime(textOf(document, key)).value_or(0);
}

ServiceResult serviceFrom(const nlohmann::json& document) {
  ServiceResult service;
  service.name = textOf(document, "name");
  const auto word = textOf(document, "result");
  service.absent = word == kAbsentWord;
  service.done = service.absent || word == kGoodWord;
  if (const auto copied = integerOf(document, "copied"); copied && *copied >= 0) {
    service.copied = static_cast<int>(*copied);
  }
  service.bytes = countOf(document, "bytes").value_or(0);
  service.missing = textsOf(document, "missing");
  service.problems = textsOf(document, "problems");
  service.log = textOf(document, "log");
  return service;
}

std::string fileNameOf(const RunRecord& record) {
  std::string name = timeText(record.started);
  std::erase(name, ':');
  return name + ".json";
}

// Names are dates: the first ones are the oldest.
void removeOldResults() {
  const std::vector<std::string> names = host::listDirectory(kResultFolder);
  for (std::size_t index = 0; index + kKeptResults < names.size(); ++index) {
    (void)host::removeItem(joinPath(kResultFolder, names[index]));  // The next run tries again.
  }
}

}  // namespace

const char* resultWord(const ServiceResult& service) {
  if (!service.done) return "failed";
  return service.absent ? kAbsentWord : kGoodWord;
}

std::string logText(const ServiceResult& service) {
  if (service.done || service.log.empty()) return {};
  // A program that could not be started has written none.
  return "see " + (host::exists(service.log) ? service.log + ", and " : "") +
         "journalctl -t Halyard";
}

const char* resultWord(RunRecord::Result result) {
  switch (result) {
    case RunRecord::Result::good:
      return "good";
    case RunRecord::Result::partial:
      return "partial";
    case RunRecord::Result::interrupted:
      return "interrupted";
    case RunRecord::Result::failed:
      break;
  }
  return "failed";
}

nlohmann::json recordJson(const RunRecord& record) {
  nlohmann::json document = {{"started", timeText(record.started)},
                             {"finished", timeText(record.finished)},
                             {"seconds", record.finished - record.started},
                             {"result", resultWord(record.result)},
                             {"services", nlohmann::json::array()},
                             {"problems", record.problems},
                             {"snapshot", nullptr},
                             {"lastGood", nlohmann::json::object()}};
  for (const ServiceResult& service : record.services) {
    document["services"].push_back(serviceJson(service));
  }
  if (!record.snapshot.empty()) document["snapshot"] = record.snapshot;
  if (record.copiedBytes) document["copiedBytes"] = *record.copiedBytes;
  if (record.estimateBytes) document["estimateBytes"] = *record.estimateBytes;
  for (const auto& [name, good] : record.lastGood) {
    document["lastGood"][name] = {
        {"time", timeText(good.time)}, {"bytes", good.bytes}, {"snapshot", good.snapshot}};
  }
  return document;
}

std::optional<RunRecord> recordFrom(const nlohmann::json& document) {
  if (timeOf(document, "finished") == 0) return std::nullopt;
  RunRecord record;
  record.started = timeOf(document, "started");
  record.finished = timeOf(document, "finished");
  const std::string word = textOf(document, "result");
  for (const auto result :
       {RunRecord::Result::good, RunRecord::Result::partial, RunRecord::Result::interrupted}) {
    if (word == resultWord(result)) record.result = result;
  }
  for (const auto& service : memberOf(document, "services")) {
    if (service.is_object()) record.services.push_back(serviceFrom(service));
  }
  record.problems = textsOf(document, "problems");
  record.snapshot = textOf(document, "snapshot");
  record.copiedBytes = countOf(document, "copiedBytes");
  record.estimateBytes = countOf(document, "estimateBytes");
  if (const auto& goods = memberOf(document, "lastGood"); goods.is_object()) {
    for (const auto& [name, good] : goods.items()) {
      if (!good.is_object()) continue;
      record.lastGood[name] = {timeOf(good, "time"), countOf(good, "bytes").value_or(0),
                               textOf(good, "snapshot")};
    }
  }
  return record;
}

std::optional<RunRecord> readLastRecord() {
  const auto text = host::readFile(kLastBackupFile, kRecordLimit);
  if (!text) return std::nullopt;
  const nlohmann::json document = nlohmann::json::parse(*text, nullptr, false);
  return recordFrom(document);
}

void tellWhatNoSnapshotHolds(RunRecord& record) {
  if (!record.snapshot.empty()) return;
  for (ServiceResult& service : record.services) {
    if (!service.done || service.absent) continue;
    service.done = false;
    service.problems.emplace_back("its backup was done, but no snapshot holds it");
    service.log.clear();
  }
}

void inheritGood(RunRecord& record, const std::optional<RunRecord>& before) {
  if (before) record.lastGood = before->lastGood;
  // What no snapshot carries away is gone with the next run.
  if (record.snapshot.empty()) return;
  std::uint64_t all = 0;
  for (const ServiceResult& service : record.services) {
    all += service.bytes;
    if (service.done && !service.absent)
      record.lastGood[service.name] = {record.finished, service.bytes, record.snapshot};
  }
  if (record.result == RunRecord::Result::good) {
    record.lastGood[""] = {record.finished, all, record.snapshot};
  }
}

bool keepRecord(const RunRecord& record) {
  const std::string text =
      recordJson(record).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
  if (!makeFolders(kResultFolder, kStateFolderMode)) return false;
  const Status dated = host::writeFile(joinPath(kResultFolder, fileNameOf(record)), text);
  const Status latest = host::writeFile(kLastBackupFile, text, host::Durability::power);
  removeOldResults();
  return dated && latest;
}

int exitStatusOf(RunRecord::Result result) {
  switch (result) {
    case RunRecord::Result::good:
      return kSuccess;
    case RunRecord::Result::partial:
      return kPartial;
    case RunRecord::Result::failed:
    case RunRecord::Result::interrupted:
      break;
  }
  return kFailure;
}

}  // namespace halyard::hostkit
